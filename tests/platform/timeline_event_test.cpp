// The lines of the record of starts.
#include "platform/posix/timeline/timeline_event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "platform/posix/common_posix/percent_text.h"

namespace ProcMgr::Timeline {
namespace {

using testing::ElementsAre;

constexpr const char* kHeader = "procmgr-timeline 1 0123-4567\n";

Event Stamped(Event event, uint64_t serial) {
    event.serial = serial;
    event.monotonicUs = 5000000 + static_cast<int64_t>(serial);
    event.wallUs = 1772600767890000 + static_cast<int64_t>(serial);
    return event;
}

/// One event of each kind, with all that it has to tell.
std::vector<Event> EachKind() {
    std::vector<Event> events;
    for (size_t kind = 0; kind < kEventKinds; ++kind) {
        events.push_back(Stamped(EventOf(static_cast<EventKind>(kind), "cam", 4711), kind + 1));
        Event& event = events.back();
        event.owner = "grp owner";
        event.path = "/etc/robot=1";
        event.depends = {"clock", "a,b", "c d"};
        event.uid = 1000;
        event.good = 1;
        event.boot = 1;
        event.request = 7;
        event.restart = 1;
        event.reason = 2;
        event.detail = 13;
        event.signal = 9;
        event.state = 2;
    }
    return events;
}

constexpr const char* kEachKind =
    "1 5000001 1772600767890001 came owner=grp%20owner pid=4711 uid=1000\n"
    "2 5000002 1772600767890002 loaded path=/etc/robot%3D1 good=1\n"
    "3 5000003 1772600767890003 manifest app=cam boot=1 reports=0 depends=clock,a%2Cb,c%20d\n"
    "4 5000004 1772600767890004 asked app=cam request=7 restart=1\n"
    "5 5000005 1772600767890005 forked app=cam pid=4711\n"
    "6 5000006 1772600767890006 running app=cam pid=4711\n"
    "7 5000007 1772600767890007 ready app=cam pid=4711\n"
    "8 5000008 1772600767890008 failed app=cam reason=2 detail=13\n"
    "9 5000009 1772600767890009 ending app=cam\n"
    "10 5000010 1772600767890010 exited app=cam pid=4711 code=0 signal=9\n"
    "11 5000011 1772600767890011 services state=2\n"
    "12 5000012 1772600767890012 left\n";

std::string Write(const std::vector<Event>& events) {
    std::string text;
    for (const Event& event : events) {
        text += WriteEvent(event);
    }
    return text;
}

RecordPart Read(const std::string& text) {
    RecordPart part;
    RecordFault fault;
    EXPECT_TRUE(ReadPart(text, part, fault)) << fault.line << ": " << fault.text;
    return part;
}

/// "line: what is wrong".
std::string Fault(const std::string& text) {
    RecordPart part;
    part.bootId = "untouched";
    RecordFault fault;
    EXPECT_FALSE(ReadPart(text, part, fault)) << text;
    EXPECT_EQ(part.bootId, "untouched");
    return std::to_string(fault.line) + ": " + fault.text;
}

std::vector<uint64_t> Serials(const RecordPart& part) {
    std::vector<uint64_t> serials;
    for (const Event& event : part.events) {
        serials.push_back(event.serial);
    }
    return serials;
}

TEST(TimelineEvent, IsALineWithTheKeysOfItsKind) {
    EXPECT_EQ(Write(EachKind()), kEachKind);
    EXPECT_EQ(WriteHeader("0123-4567"), kHeader);
}

TEST(TimelineEvent, IsReadAsItWasWritten) {
    const RecordPart part = Read(std::string(kHeader) + kEachKind);
    EXPECT_EQ(part.bootId, "0123-4567");
    EXPECT_FALSE(part.isTorn);
    EXPECT_EQ(part.lastSerial, kEventKinds);
    ASSERT_EQ(part.events.size(), kEventKinds);
    EXPECT_EQ(Write(part.events), kEachKind);
    EXPECT_THAT(part.events[2].depends, ElementsAre("clock", "a,b", "c d"));
    EXPECT_EQ(part.events[0].owner, "grp owner");
}

TEST(TimelineEvent, HasTheNameOfItsKind) {
    EXPECT_STREQ(EventName(EventKind::CAME), "came");
    EXPECT_STREQ(EventName(EventKind::LEFT), "left");
}

TEST(TimelineEvent, KeepsEveryByteOfAName) {
    std::string name;
    for (int byte = 0; byte < 256; ++byte) {
        name += static_cast<char>(byte);
    }
    Event event = Stamped(EventOf(EventKind::MANIFEST, name), 1);
    event.depends = {name, name};
    const RecordPart part = Read(kHeader + WriteEvent(event));
    ASSERT_EQ(part.events.size(), 1U);
    EXPECT_EQ(part.events[0].app, name);
    EXPECT_THAT(part.events[0].depends, ElementsAre(name, name));
}

TEST(TimelineEvent, OfAManifestWithoutDependenciesHasAnEmptyList) {
    const RecordPart part = Read(kHeader + WriteEvent(Stamped(EventOf(EventKind::MANIFEST, "cam"), 1)));
    EXPECT_THAT(part.events.at(0).depends, ElementsAre());
}

TEST(TimelineRecord, PassesOverEventsAndKeysThatItDoesNotKnow) {
    const RecordPart part = Read(std::string(kHeader) +
                                 "1 1 1 dreamed app=cam\n"
                                 "4 1 1 forked colour=red app=cam pid=3 pid=4 flag\n");
    EXPECT_THAT(Serials(part), ElementsAre(4U));
    EXPECT_EQ(part.events[0].pid, 3U);
}

TEST(TimelineRecord, PassesOverEmptyNamesInAList) {
    const RecordPart part =
        Read(std::string(kHeader) + "1 1 1 manifest app=cam boot=1 reports=0 depends=,,power,,light,\n");
    EXPECT_THAT(part.events.at(0).depends, ElementsAre("power", "light"));
}

TEST(TimelineRecord, LeavesOutATornLastLine) {
    const std::string whole = std::string(kHeader) + "1 1 1 left\n";
    for (const char* torn : {"2", "2 1 1 ending app=ca", "2 1 1 left"}) {
        const RecordPart part = Read(whole + torn);
        EXPECT_TRUE(part.isTorn);
        EXPECT_THAT(Serials(part), ElementsAre(1U));
    }
}

TEST(TimelineRecord, OfAHeaderAloneHasNoEvents) {
    EXPECT_THAT(Serials(Read(kHeader)), ElementsAre());
}

TEST(TimelineRecord, SaysWhereItIsDamagedAndHow) {
    const std::string good = std::string(kHeader) + "1 1 1 left\n";
    const std::map<std::string, std::string> faults = {
        {"", "1: it is empty or ends inside its first line"},
        {"procmgr-timel", "1: it is empty or ends inside its first line"},
        {"hello\n",
         "1: it does not begin with 'procmgr-timeline 1 ...', so that it is no record, or one of another kind"},
        {"procmgr-timeline 2 x\n",
         "1: it does not begin with 'procmgr-timeline 1 ...', so that it is no record, or one of another kind"},
        {good + "\n", "3: it does not begin with a serial, two times and the name of an event"},
        {good + "2 1 x left\n", "3: it does not begin with a serial, two times and the name of an event"},
        {good + "2 1 -1 left\n", "3: it does not begin with a serial, two times and the name of an event"},
        {good + "2 1 1\n", "3: it does not begin with a serial, two times and the name of an event"},
        {good + "2 1 9007199254740993 left\n",
         "3: it does not begin with a serial, two times and the name of an event"},
        {good + "1 1 1 left\n", "3: its serial is not above that of the event before"},
        {good + "2 0 1 left\n", "3: its time is before that of the event before"},
        {good + "2 1 1 forked app=cam\n", "3: an event 'forked' lacks a good 'pid='"},
        {good + "2 1 1 forked app=cam pid=\n", "3: an event 'forked' lacks a good 'pid='"},
        {good + "2 1 1 forked app=cam pid=1x\n", "3: an event 'forked' lacks a good 'pid='"},
        {good + "2 1 1 ending application=cam\n", "3: an event 'ending' lacks a good 'app='"},
    };
    for (const auto& [text, fault] : faults) {
        EXPECT_EQ(Fault(text), fault) << text;
    }
}

TEST(PercentText, IsOneWordWhateverTheText) {
    EXPECT_EQ(PercentEncode("a b\t%=,\x7f\xc3\xa9"), "a%20b%09%25=,%7F%C3%A9");
    EXPECT_EQ(PercentEncode("a=b,c", "=,"), "a%3Db%2Cc");
    EXPECT_EQ(PercentDecode("a%20b%09%25%3D%2C%7F%C3%A9"), "a b\t%=,\x7f\xc3\xa9");
    EXPECT_EQ(PercentDecode("100% %4 %zz %4"), "100% %4 %zz %4");
}

}  // namespace
}  // namespace ProcMgr::Timeline
