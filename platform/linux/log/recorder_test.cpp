#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <os/log.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/log/log_recorder.h"

namespace oslog {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Calls the function on four threads at once, with numbers from 0.
void OnFourThreads(const std::function<void(int)>& call) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) threads.emplace_back(call, i);
  for (std::thread& thread : threads) thread.join();
}

TEST(Recorder, KeepsTheLinesOfItsLifeUntilItForgetsThem) {
  os_log(OS_LOG_DEFAULT, "before");
  const Recorder outer;
  os_log(OS_LOG_DEFAULT, "one");
  {
    Recorder inner;
    os_log(OS_LOG_DEFAULT, "two");
    EXPECT_THAT(inner.texts(), ElementsAre("two"));
    inner.clear();
    EXPECT_THAT(inner.lines(), IsEmpty());
  }
  EXPECT_THAT(outer.texts(), ElementsAre("one", "two"));
}

TEST(Recorder, TextsHidePrivateDataOnDemand) {
  const Recorder recorder;
  os_log(OS_LOG_DEFAULT, "%s", "secret");
  EXPECT_THAT(recorder.texts(), ElementsAre("secret"));
  EXPECT_THAT(recorder.texts(ShowPrivate::kNo), ElementsAre("<private>"));
  EXPECT_THAT(recorder.typed_texts(ShowPrivate::kNo), ElementsAre("default: <private>"));
}

TEST(Recorder, KeepsEveryLineOfAllThreads) {
  const Recorder recorder;
  OnFourThreads([](int thread) {
    for (int line = 0; line < 250; ++line) os_log(OS_LOG_DEFAULT, "%d %d", thread, line);
  });
  std::map<std::string, int> next;
  const std::vector<Line> lines = recorder.lines();
  EXPECT_THAT(lines, SizeIs(1000));
  for (const Line& line : lines) {  // each thread's lines keep their order
    EXPECT_EQ(line.arguments.at(1).text, std::to_string(next[line.arguments.at(0).text]++));
  }
}

TEST(Sink, GetsLinesAsTheyAreWrittenUntilItIsReplacedOrTakenAway) {
  std::vector<std::string> texts;
  int others = 0;
  SetSink([&texts](const Line& line) { texts.push_back(line.typed_text()); });
  os_log(OS_LOG_DEFAULT, "one");
  EXPECT_THAT(texts, ElementsAre("default: one"));
  SetSink([&others](const Line&) { ++others; });
  os_log_error(OS_LOG_DEFAULT, "two");
  SetSink(nullptr);
  os_log(OS_LOG_DEFAULT, "three");
  EXPECT_THAT(texts, ElementsAre("default: one"));
  EXPECT_EQ(others, 1);
}

TEST(Sink, LinesItWritesItselfGoToRecordersAlone) {
  const Recorder recorder;
  int calls = 0;
  SetSink([&calls](const Line&) {
    ++calls;
    os_log(OS_LOG_DEFAULT, "from the sink");
  });
  os_log(OS_LOG_DEFAULT, "line");
  SetSink(nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(recorder.texts(), ElementsAre("line", "from the sink"));
}

TEST(Sink, IsNeverInTwoThreadsAtOnce) {
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  int lines = 0;  // unguarded: the sink is called one line at a time
  SetSink([&](const Line&) {
    if (++inside != 1) ++overlaps;
    ++lines;
    --inside;
  });
  OnFourThreads([](int) {
    for (int line = 0; line < 100; ++line) os_log(OS_LOG_DEFAULT, "line");
  });
  SetSink(nullptr);
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(lines, 400);
}

}  // namespace
}  // namespace oslog
