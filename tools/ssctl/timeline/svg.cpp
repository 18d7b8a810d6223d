#include "tools/ssctl/timeline/svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace Ssctl {

namespace {

constexpr const char* kStyle = R"(<style>
text{font-family:"DejaVu Sans",Verdana,Arial,sans-serif;fill:#1f2933}
.title{font-size:18px;font-weight:bold}
.subtitle,.legend,.tick{font-size:12px;fill:#52606d}
.band{font-size:11px;font-weight:bold;fill:#7b8794}
.even{fill:#eef2f6}
.grid{stroke:#d9e0e7;stroke-width:1}
.note{paint-order:stroke;stroke:#ffffff;stroke-width:3px;stroke-linejoin:round}
.wait{fill:#d3dae2}
.launch{fill:#2f6fb7}
.ready{fill:#8fb8e3}
.critical .launch{fill:#c2500a}
.critical .ready{fill:#f3a261}
.critical .label,.critical .note{font-weight:bold;fill:#9c3f06}
.lost{fill:none;stroke:#b3261e;stroke-width:1.5;stroke-dasharray:3 2}
.end{stroke:#b3261e;stroke-width:2}
.bad .label,.bad .note{fill:#b3261e}
.arrow{fill:none;stroke:#c2500a;stroke-width:1.5}
</style>
<defs><marker id="head" viewBox="0 0 8 8" refX="6" refY="4" markerWidth="6" markerHeight="6" orient="auto"><path d="M0 0L8 4L0 8z" fill="#c2500a"/></marker></defs>
)";

constexpr double kLabelGap = 4;

/// Two digits behind the point are finer than anybody sees; none are written that say nothing.
std::string Number(double value) {
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%.2f", std::abs(value) < 0.005 ? 0.0 : value));
    std::string number = text.data();
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.') {
        number.pop_back();
    }
    return number;
}

std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char letter : text) {
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += letter;
        }
    }
    return escaped;
}

std::string Text(const std::string& css, double x, double y, const std::string& text, const std::string& more = {}) {
    return "<text class=\"" + css + "\" x=\"" + Number(x) + "\" y=\"" + Number(y) + "\"" + more + ">" + Escape(text) +
           "</text>\n";
}

std::string Rectangle(const std::string& css, double x, double y, double width, double height) {
    return "<rect class=\"" + css + "\" x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" width=\"" + Number(width) +
           "\" height=\"" + Number(height) + "\"/>\n";
}

std::string Line(const std::string& css, double x, double y, double toX, double toY) {
    return "<path class=\"" + css + "\" d=\"M" + Number(x) + " " + Number(y) + "L" + Number(toX) + " " + Number(toY) +
           "\"/>\n";
}

std::string Tip(const std::string& text) {
    return "<title>" + Escape(text) + "</title>\n";
}

/// How wide letters are is known only to whoever shows them: what is left of a name that is too wide stays in its
/// column.
std::string ClipOfLabels(const Picture& picture) {
    return "<clipPath id=\"names\">" +
           Rectangle("", picture.labelX, 0, picture.plotX - kLabelGap - picture.labelX, picture.height) +
           "</clipPath>\n";
}

std::string Font(double size) {
    return " font-size=\"" + Number(size) + "\"";
}

struct LegendRow {
    const char* group;  ///< in which the shape gets its colour
    const char* css;
    const char* text;
    double width;
};

std::string DrawLegend(const Picture& picture) {
    constexpr LegendRow kRows[] = {{"", "wait", "waiting for dependencies", 175},
                                   {"", "launch", "starting", 85},
                                   {"", "ready", "getting ready", 115},
                                   {"critical", "launch", "critical chain", 115},
                                   {"", "lost", "did not come up", 125}};
    std::string svg;
    double x = picture.bandX;
    for (const LegendRow& row : kRows) {
        const bool isShown = (row.css != std::string("ready") || picture.hasReports) &&
                             (row.css != std::string("lost") || picture.hasFailures);
        if (isShown) {
            svg += "<g class=\"" + std::string(row.group) + "\">" + Rectangle(row.css, x, 68, 14, 10) + "</g>" +
                   Text("legend", x + 20, 77, row.text);
            x += row.width + 20;
        }
    }
    return svg;
}

std::string DrawBands(const Picture& picture) {
    std::string svg;
    bool isEven = false;
    for (const PictureBand& band : picture.bands) {
        svg += "<g>\n" + Tip(band.tip);
        if (isEven) {
            svg += Rectangle("even", picture.bandX, band.top, picture.width - 2 * picture.bandX, band.height);
        }
        svg += Text("band", picture.bandX + 6, band.top + std::min(band.height - 3, 14.0), band.text) + "</g>\n";
        isEven = !isEven;
    }
    return svg;
}

std::string DrawAxis(const Picture& picture) {
    std::string svg;
    for (const PictureTick& tick : picture.ticks) {
        svg += Line("grid", tick.x, picture.plotTop - 4, tick.x, picture.plotBottom + 4);
        for (const double y : {picture.plotTop - 8, picture.plotBottom + 18}) {
            svg += Text("tick", tick.x, y, tick.text, " text-anchor=\"middle\"");
        }
    }
    return svg;
}

std::string DrawBars(const PictureRow& row, const Picture& picture) {
    const double middle = row.top + picture.barHeight / 2;
    std::string svg;
    if (row.wait.width > 0) {
        svg += Rectangle("wait", row.wait.x, middle - picture.barHeight / 6, row.wait.width, picture.barHeight / 3);
    }
    const bool isUp = row.state == RowState::UP;
    if (row.launch.width > 0) {
        svg += Rectangle(isUp ? "launch" : "lost", row.launch.x, row.top, row.launch.width, picture.barHeight);
    }
    if (row.ready.width > 0) {
        svg += Rectangle(isUp ? "ready" : "lost", row.ready.x, row.top, row.ready.width, picture.barHeight);
    }
    for (const double x : row.ends) {
        svg += Line("end", x, row.top - 1, x, row.top + picture.barHeight + 1);
    }
    return svg;
}

std::string DrawRow(const PictureRow& row, const Picture& picture) {
    const std::string css = row.state == RowState::UP ? (row.isCritical ? "critical" : "") : "bad";
    const double baseline = row.top + picture.barHeight / 2 + picture.fontSize * 0.36;
    std::string svg = "<g class=\"" + css + "\">\n" + Tip(row.tip);
    svg += Text("label", picture.labelX, baseline, row.label, Font(picture.fontSize) + " clip-path=\"url(#names)\"");
    svg += DrawBars(row, picture);
    const std::string anchor = row.isNoteLeft ? " text-anchor=\"end\"" : "";
    svg += Text("note", row.noteX, baseline, row.note, Font(picture.fontSize - 1) + anchor);
    return svg + "</g>\n";
}

std::string DrawArrow(const std::vector<Point>& points) {
    std::string path;
    for (const Point& point : points) {
        path += (path.empty() ? "M" : "L") + Number(point.x) + " " + Number(point.y);
    }
    return "<path class=\"arrow\" marker-end=\"url(#head)\" d=\"" + path + "\"/>\n";
}

}  // namespace

std::string DrawSvg(const Picture& picture) {
    const std::string size = Number(picture.width) + " " + Number(picture.height);
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Number(picture.width) + "\" height=\"" +
                      Number(picture.height) + "\" viewBox=\"0 0 " + size + "\">\n" + kStyle + ClipOfLabels(picture);
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    svg += Text("title", picture.bandX, 32, picture.title) + Text("subtitle", picture.bandX, 53, picture.subtitle);
    svg += DrawLegend(picture) + DrawBands(picture) + DrawAxis(picture);
    // Below the rows, so that they cross out no text.
    for (const std::vector<Point>& arrow : picture.arrows) {
        svg += DrawArrow(arrow);
    }
    for (const PictureRow& row : picture.rows) {
        svg += DrawRow(row, picture);
    }
    return svg + "</svg>\n";
}

}  // namespace Ssctl
