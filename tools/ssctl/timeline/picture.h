/// Where everything stands in the picture of a timeline: a row for each application, waves as bands, time from left to
/// right. Pure; svg.h draws it.
#ifndef SSCTL_TIMELINE_PICTURE_H
#define SSCTL_TIMELINE_PICTURE_H

#include <string>
#include <vector>

#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// In picture units, from the left and from the top.
struct Point {
    double x = 0;
    double y = 0;
};

struct Bar {
    double x = 0;
    double width = 0;
};

struct PictureRow {
    double top = 0;     ///< of its bars
    std::string label;  ///< the name, cut when it is long
    std::string tip;    ///< all about it, line by line
    std::string note;   ///< behind the bars
    double noteX = 0;
    bool isNoteLeft = false;  ///< the note ends at noteX instead of beginning there
    RowState state = RowState::UP;
    bool isCritical = false;
    Bar wait;                  ///< until it was asked for
    Bar launch;                ///< from there until its program ran, or to the end of what is known
    Bar ready;                 ///< from there until it was ready
    std::vector<double> ends;  ///< abnormal ones
};

struct PictureBand {
    double top = 0;
    double height = 0;
    std::string text;
    std::string tip;
};

struct PictureTick {
    double x = 0;
    std::string text;
};

struct Picture {
    std::string title;
    std::string subtitle;
    double width = 0;
    double height = 0;
    double bandX = 0;   ///< the bands begin here, with their text
    double labelX = 0;  ///< the names begin here
    double plotX = 0;   ///< time 0
    double plotEnd = 0;
    double plotTop = 0;
    double plotBottom = 0;
    double barHeight = 0;
    double fontSize = 0;  ///< of names and notes
    bool hasFailures = false;
    bool hasReports = false;
    std::vector<PictureTick> ticks;
    std::vector<PictureBand> bands;
    std::vector<PictureRow> rows;
    std::vector<std::vector<Point>> arrows;  ///< the critical chain, from the coming up of one to the next
};

[[nodiscard]] Picture LayOut(const Timeline& timeline);

/// The distance of the ticks on an axis of that length: 1, 2 or 5 times a power of ten, so that there are at most
/// `most` of them.
[[nodiscard]] int64_t TickStepUs(int64_t lengthUs, size_t most);

/// The text with at most so many characters, the last one "…" when it was cut.
[[nodiscard]] std::string Shorten(const std::string& text, size_t characters);

}  // namespace Ssctl

#endif
