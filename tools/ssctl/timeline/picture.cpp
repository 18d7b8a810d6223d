#include "tools/ssctl/timeline/picture.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/ssctl/table.h"
#include "tools/ssctl/timeline/timeline_texts.h"

namespace Ssctl {

namespace {

constexpr double kWidth = 1280;
constexpr double kMargin = 20;
constexpr double kBandText = 70;
constexpr double kNoteRoom = 80;
constexpr double kPlotTop = 118;
constexpr double kFooter = 44;
constexpr size_t kLongestLabel = 30;
constexpr size_t kMostTicks = 12;
/// So that what took no time is seen, too.
constexpr double kLeastBar = 1.5;
/// Of a font's size: what a character takes on average.
constexpr double kCharacter = 0.6;

struct Density {
    size_t rows;  ///< up to so many
    double rowHeight;
    double fontSize;
};
constexpr std::array<Density, 3> kDensities = {{{60, 20, 12}, {150, 15, 10.5}, {SIZE_MAX, 11, 8.5}}};

const Density& DensityOf(size_t rows) {
    return *std::find_if(kDensities.begin(), kDensities.end(), [&](const Density& row) { return rows <= row.rows; });
}

bool BeginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
}

size_t Characters(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), BeginsCharacter));
}

/// Lays out one timeline.
class Layout {
public:
    explicit Layout(const Timeline& timeline) : timeline_(timeline), density_(DensityOf(timeline.rows.size())) {}

    Picture Make() {
        picture_.title = Printable(TimelineName(timeline_)) + ": " + Summarize(timeline_);
        picture_.subtitle = Subtitle();
        MakeFrame();
        MakeTicks();
        MakeRows();
        MakeBands();
        MakeArrows();
        return std::move(picture_);
    }

private:
    std::string Subtitle() const {
        std::string text = WallTime(timeline_.beginWallUs);
        if (timeline_.chain.empty()) {
            return text;
        }
        text += "  \u00b7  critical chain: ";
        for (size_t link = 0; link < timeline_.chain.size(); ++link) {
            text += (link == 0 ? "" : " \u2192 ") + Printable(timeline_.rows[timeline_.chain[link]].name);
        }
        return Shorten(text, kWidest);
    }

    void MakeFrame() {
        size_t longest = 0;
        for (const TimelineRow& row : timeline_.rows) {
            longest = std::max(longest, Characters(Shorten(Printable(row.name), kLongestLabel)));
        }
        picture_.width = kWidth;
        picture_.bandX = kMargin;
        picture_.labelX = kMargin + kBandText;
        picture_.plotX = picture_.labelX + static_cast<double>(longest) * kCharacter * density_.fontSize + kMargin;
        picture_.plotEnd = kWidth - kMargin - kNoteRoom;
        picture_.plotTop = kPlotTop;
        picture_.plotBottom = kPlotTop + static_cast<double>(timeline_.rows.size()) * density_.rowHeight;
        picture_.height = picture_.plotBottom + kFooter;
        picture_.barHeight = density_.rowHeight * 0.6;
        picture_.fontSize = density_.fontSize;
    }

    double X(int64_t us) const {
        const auto length = static_cast<double>(std::max<int64_t>(timeline_.endUs, 1));
        const double part = std::clamp(static_cast<double>(us) / length, 0.0, 1.0);
        return picture_.plotX + part * (picture_.plotEnd - picture_.plotX);
    }

    Bar Between(int64_t fromUs, int64_t toUs) const { return {X(fromUs), std::max(X(toUs) - X(fromUs), kLeastBar)}; }

    void MakeTicks() {
        const int64_t length = std::max<int64_t>(timeline_.endUs, 1);
        const int64_t step = TickStepUs(length, kMostTicks);
        for (int64_t at = 0; at <= length; at += step) {
            const std::string text = step >= 1000 ? std::to_string(at / 1000) : Milliseconds(at);
            picture_.ticks.push_back({X(at), at == 0 ? "0 ms" : text});
        }
    }

    void MakeRows() {
        for (size_t at = 0; at < timeline_.rows.size(); ++at) {
            const TimelineRow& row = timeline_.rows[at];
            PictureRow shown;
            shown.top = picture_.plotTop + static_cast<double>(at) * density_.rowHeight +
                        (density_.rowHeight - picture_.barHeight) / 2;
            shown.label = Shorten(Printable(row.name), kLongestLabel);
            shown.tip = Tip(row);
            shown.state = row.state;
            shown.isCritical = std::find(timeline_.chain.begin(), timeline_.chain.end(), at) != timeline_.chain.end();
            MakeBars(row, shown);
            MakeNote(row, shown);
            picture_.hasReports = picture_.hasReports || shown.ready.width > 0;
            picture_.hasFailures = picture_.hasFailures || row.state != RowState::UP || !shown.ends.empty();
            picture_.rows.push_back(std::move(shown));
        }
    }

    void MakeBars(const TimelineRow& row, PictureRow& shown) const {
        if (!row.askedUs) {
            return;
        }
        shown.wait = {X(0), X(*row.askedUs) - X(0)};
        for (const RowEnd& end : row.ends) {
            if (end.isAbnormal) {
                shown.ends.push_back(X(end.atUs));
            }
        }
        const int64_t over = OverUs(row);
        const int64_t running = row.reports && row.runningUs ? *row.runningUs : over;
        shown.launch = Between(*row.askedUs, running);
        if (row.reports && row.runningUs) {
            shown.ready = Between(running, over);
        }
    }

    /// When it came up, or when that came to nothing.
    int64_t OverUs(const TimelineRow& row) const {
        if (row.upUs) {
            return *row.upUs;
        }
        return row.state == RowState::STARTING || row.ends.empty() ? timeline_.endUs : row.ends.back().atUs;
    }

    void MakeNote(const TimelineRow& row, PictureRow& shown) const {
        if (row.state == RowState::NOT_ASKED) {
            shown.note = DescribeState(row) + (row.waitedFor.empty() ? "" : ": waits for " + Printable(row.waitedFor));
            shown.noteX = picture_.plotX + 4;
            return;
        }
        const int64_t over = OverUs(row);
        const bool isPlain = row.state == RowState::UP && row.tries < 2 && row.ends.empty();
        shown.note = isPlain ? "" : DescribeState(row) + ", ";
        shown.note += Milliseconds(over - *row.askedUs) + " ms";
        const Bar& last = shown.ready.width > 0 ? shown.ready : shown.launch;
        shown.noteX = last.x + last.width + 5;
        const double width = static_cast<double>(Characters(shown.note)) * kCharacter * density_.fontSize;
        if (shown.noteX + width > picture_.width) {
            // Before the bar, or, where it would cover the name, on it.
            shown.isNoteLeft = shown.launch.x - 5 - width > picture_.plotX;
            shown.noteX = shown.launch.x + (shown.isNoteLeft ? -5 : 5);
        }
    }

    std::string Tip(const TimelineRow& row) const {
        std::string tip = Printable(row.name) + ": " + DescribeState(row) + "\nwave " + std::to_string(row.wave);
        if (!row.waitedFor.empty()) {
            tip += std::string(row.askedUs ? "\nwaited for " : "\nwaits for ") + Printable(row.waitedFor);
        }
        AddTime("asked for", row.askedUs, tip);
        AddTime("process forked", row.forkedUs, tip);
        AddTime("program runs", row.runningUs, tip);
        AddTime(row.reports ? "ready" : "up", row.upUs, tip);
        for (const RowEnd& end : row.ends) {
            AddTime("ended with " + end.how, end.atUs, tip);
        }
        return tip;
    }

    static void AddTime(const std::string& what, const std::optional<int64_t>& us, std::string& tip) {
        if (us) {
            tip += "\n" + what + " at " + Milliseconds(*us) + " ms";
        }
    }

    void MakeBands() {
        for (size_t begin = 0; begin < timeline_.rows.size();) {
            const size_t wave = timeline_.rows[begin].wave;
            size_t end = begin;
            int64_t lastUs = 0;
            for (; end < timeline_.rows.size() && timeline_.rows[end].wave == wave; ++end) {
                lastUs = std::max(lastUs, timeline_.rows[end].upUs.value_or(0));
            }
            picture_.bands.push_back({picture_.plotTop + static_cast<double>(begin) * density_.rowHeight,
                                      static_cast<double>(end - begin) * density_.rowHeight,
                                      "wave " + std::to_string(wave),
                                      "wave " + std::to_string(wave) + ": " + Count(end - begin, "application") +
                                          ", the last one up at " + Milliseconds(lastUs) + " ms"});
            begin = end;
        }
    }

    /// Down beside the end of the one bar, then over to the begin of the next.
    void MakeArrows() {
        for (size_t link = 1; link < timeline_.chain.size(); ++link) {
            const PictureRow& from = picture_.rows[timeline_.chain[link - 1]];
            const PictureRow& to = picture_.rows[timeline_.chain[link]];
            const double fromX = X(*timeline_.rows[timeline_.chain[link - 1]].upUs);
            const double y = from.top + picture_.barHeight;
            const double bend = to.top - (density_.rowHeight - picture_.barHeight) / 2;
            picture_.arrows.push_back({{fromX, y}, {fromX, bend}, {to.launch.x, bend}, {to.launch.x, to.top}});
        }
    }

    static constexpr size_t kWidest = 150;

    const Timeline& timeline_;
    const Density& density_;
    Picture picture_;
};

}  // namespace

Picture LayOut(const Timeline& timeline) {
    return Layout(timeline).Make();
}

int64_t TickStepUs(int64_t lengthUs, size_t most) {
    const auto least = lengthUs / static_cast<int64_t>(most);
    int64_t power = 100;
    while (power * 10 <= least) {
        power *= 10;
    }
    for (const int64_t times : {1, 2, 5}) {
        if (power * times > least) {
            return power * times;
        }
    }
    return power * 10;
}

std::string Shorten(const std::string& text, size_t characters) {
    if (Characters(text) <= characters) {
        return text;
    }
    size_t kept = 0;
    const auto end = std::find_if(text.begin(), text.end(),
                                  [&](char byte) { return BeginsCharacter(byte) && kept++ == characters - 1; });
    return std::string(text.begin(), end) + "\u2026";
}

}  // namespace Ssctl
