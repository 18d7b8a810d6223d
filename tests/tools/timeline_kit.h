/// Records of starts for the tests, written nearly as procmgrd writes them.
#ifndef TESTS_TOOLS_TIMELINE_KIT_H
#define TESTS_TOOLS_TIMELINE_KIT_H

#include <string>
#include <vector>

#include "tools/ssctl/timeline/timeline.h"

/// Each line is milliseconds, which may have three digits behind the point, and an event with its keys: "12.5 ending
/// app=cam". The text of a file of a record: serials from 1, and a monotonic time of 100 s and a wall time of
/// 2026-03-04 05:06:07.890 UTC at 0 ms; in the order of their times.
std::string RecordText(std::vector<std::string> lines, uint64_t firstSerial = 1);

/// The same as it is read.
Ssctl::TimelineRecord RecordOf(const std::vector<std::string>& lines);

/// Of one that has something to tell.
Ssctl::Timeline TimelineOf(const std::vector<std::string>& lines, Ssctl::Span span = Ssctl::Span::BOOT);

const Ssctl::TimelineRow& RowOf(const Ssctl::Timeline& timeline, const std::string& name);

/// "power clock lidar".
std::string ChainOf(const Ssctl::Timeline& timeline);

/// power; clock, which reports; lidar, which waits for both; map, which waits for power: all came up.
extern const std::vector<std::string> kSmallBoot;

#endif
