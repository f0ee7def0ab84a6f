#include "video_fixture.h"

namespace tvx::test {
namespace {

using Clip = VideoTest;

// Mostly one event each: what the clip holds when it is cut, after the frames that follow, and when
// its notification is dispatched.
TEST_F(Clip, GrowsFromItsCutToItsDispatch) {
  ExpectRows(R"(
    L9000 K0 d500 K1000 d1500 K2000 d2500 K3000 d3500 K4000 d4500 K5000 d5500 T5750 C10,6 c L9000 K6000 d6500 K7000 d7500 K8000 c F c | 111111111111[5000 5500]11111[3000 3500/4000 4500/5000 5500/6000 6500/7000 7500/8000][2000 2500/3000 3500/4000 4500/5000 5500/6000 6500/7000 7500/8000!] | evenly on both sides, up to the duration
    L9000 K0 d40 K80 d120 T200 C10,10 c L9000 d359 c F c | 1111[80 120]1[80 120 359][0 40/80 120 359!] | not before as much has passed after it
    L9000 K0 d40 K80 d120 T200 C10,10 c L9000 d360 c F c | 1111[80 120]1[0 40/80 120 360][0 40/80 120 360!] | but then
    L9000 K0 K10 K20 K30 T30 C10,10 c L9000 d900 c F c | 1111[30]1[20/30 900][0/10/20/30 900!] | one group a frame
    K0 d500 T500 C0,1 c d999 d1000 d1001 c F c K3000 d3500 C0,1 d4001 c d4002 F c | 11[0 500]111[0 500 999 1000!][0 500 999 1000!]111[3000 3500!]1[3000 3500!] | the duration to the millisecond
    K0 K1000 d1999 T2000 C10,1 c d2000 c C10,1 c d2001 F1 c1 F2 c2 | 111[1000 1999]1[1000 1999 2000!][1000 1999 2000!]1[1000 1999 2000!][1000 1999 2000!] | a newest group that is nearly as long, and as long
    L9000 K0 d500 K1000 d1500 K2000 d2500 K3000 d3500 K4000 d4500 K5000 d5500 T5600 C0,10 c F c C-1,10 F c C10,2 c F c C10,0 c F c | 111111111111[5000 5500][5000 5500!][5000 5500!][5000 5500][4000 4500/5000 5500!][4000 4500/5000 5500!][4000 4500/5000 5500!] | nothing before it; as much as the duration allows; without one the newest two groups
    L9000 K0 d500 K1000 d1500 K2000 d2500 K3000 d3500 K4000 d4500 K5000 d5500 T6500 C2,10 c F c T6501 C2,10 F c | 111111111111[5000 5500][4000 4500/5000 5500!][5000 5500!] | a pre-trigger to the millisecond
    K0 d500 K500 T500 C0,10 c F c | 111[500][0 500/500!] | but what ended at that very millisecond
    L9000 K0 d500 K1000 d1500 K2000 T2000 C2147483647,2147483647 c F c | 11111[2000][0 500/1000 1500/2000!] | the largest ones
    L9000 K0 d1900 K2000 d3000 T3000 C10,3 c F c | 1111[2000 3000][0 1900/2000 3000!] | which counts from the first frame of a group
    L9000 K0 T0 C10,-1 c F c | 1[0!][0!] | or a negative one
    L1000 K0:300 K10:300 T10 C0,10 L9000 d20:300 d30:400 d40:1 c F c L1000 K50:300 C0,10 d60:300 L9000 d70:401 d80:1 c F c | 11111[10 20 30!][10 20 30!]1111[50 60!][50 60!] | bytes up to the limit, nothing beyond it
    L1000 K0:50 K10:350 K20:300 T20 C9,9 c L9000 d40:300 c F c | 111[20]1[10/20 40][0/10/20 40!] | held-back groups up to it
    L1000 K0:50 K10:351 K20:299 T20 C9,9 c L9000 d40:351 c F c | 111[20]1[20 40][20 40!] | one byte more ends the growth backwards
    L9000 d0 T0 C1,1 c L9000 K100 d600 d1101 c F c | 0[]111[100 600!][100 600!] | from an empty history
    d0 T0 C1,0 c d40 c F c C1,0 K100 d600 c | 0[]0[!][!]11[100!] | without a duration one frame ends the wait, even one that nothing can hold)");
}

// Several of one stream, each to its own end; the oldest that waits is let go first.
TEST_F(Clip, SharesFramesAndGivesThemBackAtOnce) {
  ExpectRows(R"(
    L1000 K0 d500 C0,1 C0,2 C0,60 d1000:300 o d1500:600 o K2000:600 C0,60 C0,60 L900 d2500:400 h c4 c5 | 111o20o011[2000][2000 2500!][2000 2500!] | refused by the history, taken by the clips
    K0 C0,60 C0,60 F D o F1 D o | 1o1o0 | finished ones are dropped
    K0:1000 d500:1000 C0,60 C0,60 C0,60 W2000:6 A2 W1999:6 c1 c3 o W0:0 c3 c2 W0:0 P B | 1101[-][0 500]o21[-][0 500]0-0 | but not one that the worker reads
    L1000 K0:50 K100:401 K200:300 C10,60 d300:300 P B F c | 1111-2[200 300!] | what is held back when a group is refused
    L1000 K0:50 K100:350 K200:300 C10,60 d250:700 P B F c | 1111-2[200 250!] | or when the clip is complete
    K0 d500 K1000 d1500 K2000 d2500 K3000 d3500 K4000 d4500 K5000 d5500 C1,60 P1_1280x720_5 K6000 c o h | 1111111111111[4000 4500/5000 5500!]o0[6000] | another format completes it with what it has
    K6 L0 C10,10 c | 1[6!] | a limit of 0 is like a duration of 0)");
}

TEST_F(Clip, OfStillImagesHoldsOnePicture) {
  EXPECT_EQ(Feed("K1 K2 K3 C10,10 c", kJpegStream), "111[3!]");
  Reset();
  EXPECT_EQ(Feed("d0 C0,10 K4 K5 c", kJpegStream), "011[4!]");
  Feed("P1_1280x720_5 K6 C0,10 P1_640x480_5 K7");
  EXPECT_EQ(cuts.back().first->Contents().Format().Width, 1280);
  EXPECT_EQ(History().Format().Width, 640);
}

}  // namespace
}  // namespace tvx::test
