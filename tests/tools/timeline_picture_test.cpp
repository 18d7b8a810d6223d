// The picture of a timeline: where things stand, and how they are drawn.
#include "tools/ssctl/timeline/picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/timeline_kit.h"
#include "tools/ssctl/timeline/svg.h"

using namespace Ssctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using Lines = std::vector<std::string>;

Picture PictureOf(const Lines& lines) {
    return LayOut(TimelineOf(lines));
}

/// So many independent applications, each up in no time.
Lines Many(size_t count) {
    Lines lines = {"0 came owner=g pid=1 uid=0"};
    for (size_t at = 0; at < count; ++at) {
        lines.push_back("0 manifest app=a" + std::to_string(at) + " boot=1 reports=0 depends=");
    }
    for (size_t at = 0; at < count; ++at) {
        lines.push_back("5 asked app=a" + std::to_string(at) + " request=1 restart=0");
        lines.push_back("5 running app=a" + std::to_string(at) + " pid=1");
    }
    return lines;
}

const PictureRow& RowOf(const Picture& picture, const std::string& label) {
    for (const PictureRow& row : picture.rows) {
        if (row.label == label) {
            return row;
        }
    }
    ADD_FAILURE() << label;
    return picture.rows.front();
}

void ExpectWithin(const Picture& picture, const Bar& bar) {
    EXPECT_GE(bar.x, 0);
    EXPECT_LE(bar.x + bar.width, picture.width);
}

const Lines kTiny = {"0 came owner=g%26lt; pid=1 uid=0",
                     "0 manifest app=a boot=1 reports=1 depends=",
                     "0 manifest app=b%3C boot=1 reports=0 depends=a",
                     "1 asked app=a request=1 restart=0",
                     "2 forked app=a pid=5",
                     "3 running app=a pid=5",
                     "6 ready app=a pid=5",
                     "6.5 asked app=b%3C request=2 restart=0",
                     "7 forked app=b%3C pid=6",
                     "8 running app=b%3C pid=6",
                     "9 services state=2"};

/// Without what is the same in every picture.
constexpr const char* kTinySvg =
    R"svg(<svg xmlns="http://www.w3.org/2000/svg" width="1280" height="202" viewBox="0 0 1280 202">
<clipPath id="names"><rect class="" x="90" y="0" width="30.4" height="202"/>
</clipPath>
<rect width="100%" height="100%" fill="#ffffff"/>
<text class="title" x="20" y="32">Boot of g&amp;lt;: 2 of 2 applications came up within 8.0 ms, in 2 waves</text>
<text class="subtitle" x="20" y="53">2026-03-04 05:06:07.890 UTC  ·  critical chain: a → b&lt;</text>
<g class=""><rect class="wait" x="20" y="68" width="14" height="10"/>
</g><text class="legend" x="40" y="77">waiting for dependencies</text>
<g class=""><rect class="launch" x="215" y="68" width="14" height="10"/>
</g><text class="legend" x="235" y="77">starting</text>
<g class=""><rect class="ready" x="320" y="68" width="14" height="10"/>
</g><text class="legend" x="340" y="77">getting ready</text>
<g class="critical"><rect class="launch" x="455" y="68" width="14" height="10"/>
</g><text class="legend" x="475" y="77">critical chain</text>
<g>
<title>wave 1: 1 application, the last one up at 6.0 ms</title>
<text class="band" x="26" y="132">wave 1</text>
</g>
<g>
<title>wave 2: 1 application, the last one up at 8.0 ms</title>
<rect class="even" x="20" y="138" width="1240" height="20"/>
<text class="band" x="26" y="152">wave 2</text>
</g>
<path class="grid" d="M124.4 114L124.4 162"/>
<text class="tick" x="124.4" y="110" text-anchor="middle">0 ms</text>
<text class="tick" x="124.4" y="176" text-anchor="middle">0 ms</text>
<path class="grid" d="M256.35 114L256.35 162"/>
<text class="tick" x="256.35" y="110" text-anchor="middle">1</text>
<text class="tick" x="256.35" y="176" text-anchor="middle">1</text>
<path class="grid" d="M388.3 114L388.3 162"/>
<text class="tick" x="388.3" y="110" text-anchor="middle">2</text>
<text class="tick" x="388.3" y="176" text-anchor="middle">2</text>
<path class="grid" d="M520.25 114L520.25 162"/>
<text class="tick" x="520.25" y="110" text-anchor="middle">3</text>
<text class="tick" x="520.25" y="176" text-anchor="middle">3</text>
<path class="grid" d="M652.2 114L652.2 162"/>
<text class="tick" x="652.2" y="110" text-anchor="middle">4</text>
<text class="tick" x="652.2" y="176" text-anchor="middle">4</text>
<path class="grid" d="M784.15 114L784.15 162"/>
<text class="tick" x="784.15" y="110" text-anchor="middle">5</text>
<text class="tick" x="784.15" y="176" text-anchor="middle">5</text>
<path class="grid" d="M916.1 114L916.1 162"/>
<text class="tick" x="916.1" y="110" text-anchor="middle">6</text>
<text class="tick" x="916.1" y="176" text-anchor="middle">6</text>
<path class="grid" d="M1048.05 114L1048.05 162"/>
<text class="tick" x="1048.05" y="110" text-anchor="middle">7</text>
<text class="tick" x="1048.05" y="176" text-anchor="middle">7</text>
<path class="grid" d="M1180 114L1180 162"/>
<text class="tick" x="1180" y="110" text-anchor="middle">8</text>
<text class="tick" x="1180" y="176" text-anchor="middle">8</text>
<path class="arrow" marker-end="url(#head)" d="M916.1 134L916.1 138L982.07 138L982.07 142"/>
<g class="critical">
<title>a: up
wave 1
asked for at 1.0 ms
process forked at 2.0 ms
program runs at 3.0 ms
ready at 6.0 ms</title>
<text class="label" x="90" y="132.32" font-size="12" clip-path="url(#names)">a</text>
<rect class="wait" x="124.4" y="126" width="131.95" height="4"/>
<rect class="launch" x="256.35" y="122" width="263.9" height="12"/>
<rect class="ready" x="520.25" y="122" width="395.85" height="12"/>
<text class="note" x="921.1" y="132.32" font-size="11">5.0 ms</text>
</g>
<g class="critical">
<title>b&lt;: up
wave 2
waited for a
asked for at 6.5 ms
process forked at 7.0 ms
program runs at 8.0 ms
up at 8.0 ms</title>
<text class="label" x="90" y="152.32" font-size="12" clip-path="url(#names)">b&lt;</text>
<rect class="wait" x="124.4" y="146" width="857.67" height="4"/>
<rect class="launch" x="982.07" y="142" width="197.93" height="12"/>
<text class="note" x="1185" y="152.32" font-size="11">1.5 ms</text>
</g>
</svg>
)svg";

}  // namespace

TEST(TimelineSvg, OfATinyBootIsThisText) {
    std::string svg = DrawSvg(PictureOf(kTiny));
    const size_t style = svg.find("<style>");
    const size_t end = svg.find("</defs>\n");
    ASSERT_NE(style, std::string::npos);
    ASSERT_NE(end, std::string::npos);
    svg.erase(style, end + 8 - style);
    EXPECT_EQ(svg, kTinySvg);
}

TEST(TimelineSvg, NeedsNothingFromElsewhere) {
    const std::string svg = DrawSvg(PictureOf(kTiny));
    EXPECT_THAT(svg, Not(HasSubstr("href")));
    EXPECT_THAT(svg, Not(HasSubstr("@import")));
    EXPECT_THAT(svg, Not(HasSubstr("<script")));
}

TEST(TimelineSvg, HasNoByteOfANameThatXmlForbids) {
    const std::string svg =
        DrawSvg(PictureOf({"0 came owner=g%01 pid=1 uid=0", "0 manifest app=%02%FF boot=1 reports=0 depends=",
                           "1 asked app=%02%FF request=1 restart=0", "2 running app=%02%FF pid=1"}));
    EXPECT_THAT(svg, HasSubstr("Boot of g\\x01:"));
    EXPECT_THAT(svg, HasSubstr(">\\x02\\xff<"));
    for (const char byte : svg) {
        EXPECT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= ' ');
    }
}

TEST(TimelinePicture, OfOneApplicationThatTookNoTimeShowsIt) {
    const Picture picture = PictureOf(Many(1));
    ASSERT_EQ(picture.rows.size(), 1U);
    EXPECT_GT(picture.rows[0].launch.width, 1);
    EXPECT_THAT(picture.arrows, IsEmpty());
    EXPECT_EQ(picture.rows[0].note, "0.0 ms");
    Lines atOnce = Many(1);
    atOnce[2] = "0 asked app=a0 request=1 restart=0";
    atOnce[3] = "0 running app=a0 pid=1";
    ExpectWithin(PictureOf(atOnce), PictureOf(atOnce).rows[0].launch);
}

TEST(TimelinePicture, GetsDenserWithTheNumberOfApplications) {
    EXPECT_EQ(PictureOf(Many(60)).height, 118 + 60 * 20 + 44);
    EXPECT_EQ(PictureOf(Many(61)).height, 118 + 61 * 15 + 44);
    const Picture picture = PictureOf(Many(500));
    EXPECT_EQ(picture.height, 118 + 500 * 11 + 44);
    EXPECT_EQ(picture.rows.size(), 500U);
    for (size_t at = 1; at < 500; ++at) {
        EXPECT_NEAR(picture.rows[at].top - picture.rows[at - 1].top, 11, 0.001);
    }
    EXPECT_LT(picture.rows.back().top + picture.barHeight, picture.plotBottom);
}

TEST(TimelinePicture, HasABandForEachWave) {
    const Picture picture = PictureOf(kSmallBoot);
    ASSERT_EQ(picture.bands.size(), 2U);
    EXPECT_EQ(picture.bands[0].text, "wave 1");
    EXPECT_EQ(picture.bands[1].tip, "wave 2: 2 applications, the last one up at 100.0 ms");
    EXPECT_EQ(picture.bands[1].top, picture.bands[0].top + 40);
    EXPECT_EQ(picture.bands[1].top + picture.bands[1].height, picture.plotBottom);
}

TEST(TimelinePicture, LeadsTheCriticalChainFromOneComingUpToTheNextRequest) {
    const Picture picture = PictureOf(kSmallBoot);
    ASSERT_EQ(picture.arrows.size(), 1U);
    const PictureRow& clock = RowOf(picture, "clock");
    const PictureRow& lidar = RowOf(picture, "lidar");
    EXPECT_NEAR(picture.arrows[0].front().x, clock.ready.x + clock.ready.width, 0.001);
    EXPECT_EQ(picture.arrows[0].front().y, clock.top + picture.barHeight);
    EXPECT_EQ(picture.arrows[0].back().x, lidar.launch.x);
    EXPECT_EQ(picture.arrows[0].back().y, lidar.top);
    EXPECT_TRUE(clock.isCritical && lidar.isCritical);
    EXPECT_FALSE(RowOf(picture, "map").isCritical);
}

TEST(TimelinePicture, CutsLongNamesAndKeepsThemInTheTip) {
    const std::string name(100, 'n');
    const Picture picture =
        PictureOf({"0 came owner=g pid=1 uid=0", "0 manifest app=" + name + " boot=1 reports=0 depends=",
                   "1 asked app=" + name + " request=1 restart=0", "2 running app=" + name + " pid=1"});
    EXPECT_EQ(picture.rows[0].label, std::string(29, 'n') + "\u2026");
    EXPECT_THAT(picture.rows[0].tip, HasSubstr(name));
    EXPECT_LT(picture.plotX, picture.width / 2);
}

TEST(TimelinePicture, SaysItBeforeTheBarWhenThereIsRoomOnlyThere) {
    const Picture picture =
        PictureOf({"0 came owner=g pid=1 uid=0", "0 manifest app=mute boot=1 reports=1 depends=",
                   "60 asked app=mute request=1 restart=0", "61 running app=mute pid=4", "100 services state=2"});
    EXPECT_EQ(RowOf(picture, "mute").note, "not up, 40.0 ms");
    EXPECT_TRUE(RowOf(picture, "mute").isNoteLeft);
    EXPECT_EQ(RowOf(picture, "mute").noteX, RowOf(picture, "mute").launch.x - 5);
}

TEST(TimelinePicture, SaysOfEachWhatBecameOfIt) {
    const Picture picture = PictureOf(
        {"0 came owner=g pid=1 uid=0", "0 manifest app=ghost boot=1 reports=0 depends=",
         "0 manifest app=mute boot=1 reports=1 depends=", "0 manifest app=user boot=1 reports=0 depends=ghost",
         "1 asked app=ghost request=1 restart=0", "1 asked app=mute request=1 restart=0", "2 forked app=mute pid=4",
         "3 running app=mute pid=4", "5 failed app=ghost reason=2 detail=2", "100 services state=2"});
    EXPECT_EQ(RowOf(picture, "ghost").note, "failed: reason 2, 4.0 ms");
    EXPECT_THAT(RowOf(picture, "ghost").ends, ElementsAre(testing::Gt(picture.plotX)));
    EXPECT_EQ(RowOf(picture, "mute").note, "not up, 99.0 ms");
    EXPECT_FALSE(RowOf(picture, "mute").isNoteLeft) << "there is room neither behind nor before it";
    EXPECT_EQ(RowOf(picture, "mute").noteX, RowOf(picture, "mute").launch.x + 5);
    EXPECT_NEAR(RowOf(picture, "mute").ready.x + RowOf(picture, "mute").ready.width, picture.plotEnd, 0.001);
    EXPECT_EQ(RowOf(picture, "user").note, "not asked for: waits for ghost");
    EXPECT_EQ(RowOf(picture, "user").launch.width, 0);
    EXPECT_TRUE(picture.hasFailures);
    EXPECT_FALSE(PictureOf(kSmallBoot).hasFailures);
}

TEST(TimelinePicture, HasTicksInRoundNumbers) {
    EXPECT_EQ(TickStepUs(1, 12), 100);
    EXPECT_EQ(TickStepUs(8000, 12), 1000);
    EXPECT_EQ(TickStepUs(100000, 12), 10000);
    EXPECT_EQ(TickStepUs(655200, 12), 100000);
    EXPECT_EQ(TickStepUs(700000000, 12), 100000000);
    for (const int64_t length : {1LL, 999LL, 1234LL, 12000LL, 59999LL, 600000LL, 7777777LL}) {
        EXPECT_LE(length / TickStepUs(length, 12), 12) << length;
    }
    std::vector<std::string> texts;
    for (const PictureTick& tick : PictureOf(kSmallBoot).ticks) {
        texts.push_back(tick.text);
    }
    EXPECT_THAT(texts, ElementsAre("0 ms", "10", "20", "30", "40", "50", "60", "70", "80", "90", "100"));
}

TEST(TimelinePicture, CutsTextsBetweenCharacters) {
    EXPECT_EQ(Shorten("abc", 3), "abc");
    EXPECT_EQ(Shorten("abcd", 3), "ab\u2026");
    EXPECT_EQ(Shorten("\u00e9\u00e9\u00e9\u00e9", 3), "\u00e9\u00e9\u2026");
    EXPECT_EQ(Shorten("", 3), "");
}
