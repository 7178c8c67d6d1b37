// Commands of all kinds in random order, while the flow runs and another thread reads the status.
// Watch checks what holds for every status.
//
// Lasts for ZEPHANE_STORM_SECONDS; longer under the sanitizers.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <random>
#include <thread>

#include "boundary/call_frame.h"
#include "boundary/reports.h"
#include "boundary/ui_operations.h"
#include "tests/controller/flows.h"

namespace zeph {
namespace {

using Seconds = std::chrono::duration<double>;

double stormSeconds() {
  const char* text = std::getenv("ZEPHANE_STORM_SECONDS");
  return text ? std::atof(text) : 3;
}

// Reads the status repeatedly and checks it.
class Watch {
 public:
  // The messages dismissed so far.
  explicit Watch(const std::atomic<int>& dismissed) : dismissed_(dismissed) {}

  void see(const Status& now) {
    const int dismissed = dismissed_;
    ASSERT_GE(now.generation, last_.generation);
    expectSound(now);
    if (now.generation == last_.generation) {
      expectForwards(now);
    } else {
      maybeLost_ = false;
    }
    // Only a lost flow that was commanded to run is both running and settled.
    maybeLost_ = maybeLost_ || !now.error_message.empty() || dismissed != lastDismissed_;
    EXPECT_FALSE(now.running && now.settled && !maybeLost_);
    last_ = now;
    lastDismissed_ = dismissed;
  }

 private:
  void expectSound(const Status& now) {
    EXPECT_EQ(now.ready, now.frame != nullptr);
    EXPECT_LE(now.history.size(), 120u);
    EXPECT_GE(now.batchSteps, 1);
    EXPECT_LE(now.batchSteps, 32);
    EXPECT_TRUE(std::isfinite(now.elapsedSeconds) && now.elapsedSeconds >= 0);
    EXPECT_TRUE(now.simtimePerSecond >= 0 && now.stepsPerSecond >= 0);
    if (now.frame) {
      EXPECT_EQ(now.frame->gridSize, now.config.resolution);
      EXPECT_LE(now.frame->sequence, now.stats.steps);
      EXPECT_FALSE(now.history.empty());
    }
    if (now.history.empty()) {
      EXPECT_EQ(now.stats.steps, 0u);
      EXPECT_EQ(now.batchCount, 0u);
    }
  }

  void expectForwards(const Status& now) {
    EXPECT_GE(now.stats.steps, last_.stats.steps);
    EXPECT_GE(now.stats.time, last_.stats.time);
    EXPECT_GE(now.batchCount, last_.batchCount);
    EXPECT_GE(now.frameCount, last_.frameCount);
    EXPECT_GE(now.elapsedSeconds, last_.elapsedSeconds);
    EXPECT_GE(now.gpuSeconds, last_.gpuSeconds);
    EXPECT_GE(now.ready, last_.ready);
    if (now.frame && last_.frame) {
      EXPECT_GE(now.frame->sequence, last_.frame->sequence);
    }
    expectSmallChanges(now);
  }

  // The regulator takes one sample for the start and at most one after each batch.
  void expectSmallChanges(const Status& now) {
    const bool regulated = now.regulated && last_.regulated;
    if (!regulated || !(last_.stats.reynolds > 0) || now.config != last_.config) return;
    const double samples = static_cast<double>(now.batchCount - last_.batchCount) + 1;
    EXPECT_LE(std::abs(std::log(now.stats.reynolds / last_.stats.reynolds)), samples * 0.01 + 1e-9);
  }

  const std::atomic<int>& dismissed_;
  Status last_;
  int lastDismissed_ = 0;
  bool maybeLost_ = false;
};

class Storm {
 public:
  explicit Storm(std::uint64_t seed) : source_(seed) {}

  // A request, sometimes one that is refused.
  std::string request() {
    static const char* const simple[] = {"get",   "flush",   "start", "toggle", "step",
                                         "reset", "dismiss", "seed",  "step",   "toggle"};
    switch (number(0, 11)) {
      case 0:
        return text({{"op", "running"}, {"value", chance(0.7)}});
      case 1:
        return text({{"op", "visible"}, {"value", chance(0.7)}});
      case 2:
        return configure();
      case 3:
        return set();
      case 4:
        return benchmark();
      case 5:
        return text({{"op", chance(0.5) ? "export" : "no such operation"}});
      default:
        return text({{"op", simple[number(0, std::size(simple) - 1)]}});
    }
  }

  void pause() {
    if (chance(0.6)) return;
    std::this_thread::sleep_for(std::chrono::microseconds(number(0, chance(0.05) ? 60000 : 3000)));
  }

 private:
  std::string configure() {
    static const int sides[] = {16, 18, 24, 32, 17};
    static const char* const integrators[] = {"etdrk4", "imexRK3", "ifHeunRK3"};
    Json request = {{"op", "configure"}};
    if (chance(0.4)) request["resolution"] = sides[number(0, 4)];
    if (chance(0.3)) request["integrator"] = integrators[number(0, 2)];
    if (chance(0.2)) request["operator"] = chance(0.5) ? "stress" : "advective";
    if (chance(0.2)) request["k0"] = number(0, 5);
    if (chance(0.3)) request["reynolds"] = 1000 + number(0, 100000);
    if (chance(0.3)) request["cap_cfl"] = chance(0.5);
    // A step that makes the flow overflow, and the recovery.
    request["fixed_dt"] = nullptr;
    if (chance(0.1)) request["fixed_dt"] = 1e30;
    return text(request);
  }

  std::string set() {
    Json request = {{"op", "set"}};
    if (chance(0.3)) request["cfl"] = 0.5 * number(0, 8);
    if (chance(0.3)) request["log_reynolds"] = 3 + 0.01 * number(0, 200);
    if (chance(0.3)) request["flow"] = chance(0.5);
    if (chance(0.3)) request["display"] = chance(0.5) ? "speed" : "vorticity";
    return text(request);
  }

  std::string benchmark() {
    Json request = {{"op", "benchmark"}, {"initial", nullptr}, {"spectrum", nullptr}};
    for (const char* key : {"until", "wall_seconds", "batch"}) request[key] = nullptr;
    if (chance(0.3)) request["until"] = 0.1 * number(0, 100) - 0.1;
    if (chance(0.2)) request["wall_seconds"] = 0.02 * number(0, 10);
    if (chance(0.3)) request["batch"] = number(0, 33);
    if (chance(0.1)) request["initial"] = "/no/such/file";
    if (chance(0.1)) request["spectrum"] = "/no/such/folder/file";
    return text(request);
  }

  std::string text(const Json& request) { return request.dump(); }
  bool chance(double share) { return std::bernoulli_distribution(share)(source_); }
  template <class Last>
  int number(int first, Last last) {
    return std::uniform_int_distribution<int>(first, static_cast<int>(last))(source_);
  }

  std::mt19937_64 source_;
};

Status look(const View& view) {
  return view.handle().report().status;
}

TEST(CommandStorm, KeepsEveryStatusConsistent) {
  const auto seed = static_cast<std::uint64_t>(std::random_device()());
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  Storm storm(seed);
  View view;
  {
    const auto lock = view.handle().lock();
    view.handle().applyConfig(test::configOf(16));
  }

  std::atomic<bool> over = false;
  std::atomic<int> dismissed = 0;
  std::thread onlooker([&] {
    Watch watch(dismissed);
    while (!over && !testing::Test::HasFailure()) {
      watch.see(look(view));
      serialise(statusReport(view));
      std::this_thread::yield();
    }
  });

  Watch watch(dismissed);
  const auto end = std::chrono::steady_clock::now() + Seconds(stormSeconds());
  while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure()) {
    const std::string request = storm.request();
    SCOPED_TRACE(request);
    if (request == R"({"op":"dismiss"})") ++dismissed;
    try {
      serialise(runUiOperation(view, parseObject(request.c_str())));
    } catch (const std::exception& refusal) {
      EXPECT_NE(std::string(refusal.what()), "");
    }
    watch.see(look(view));
    storm.pause();
  }
  over = true;
  onlooker.join();

  // Afterwards the controller still works.
  for (const char* request :
       {R"({"op":"benchmark","until":null,"wall_seconds":null,"initial":null,"spectrum":null})",
        R"({"op":"configure","resolution":20,"reynolds":2000,"fixed_dt":null})",
        R"({"op":"start"})", R"({"op":"reset"})", R"({"op":"running","value":true})",
        R"({"op":"visible"})"})
    runUiOperation(view, parseObject(request));
  const auto patience = std::chrono::steady_clock::now() + test::patience;
  const auto isUnderWay = [&] {
    const Status now = look(view);
    return now.ready && now.stats.steps > 20;
  };
  while (!isUnderWay() && std::chrono::steady_clock::now() < patience) std::this_thread::yield();
  EXPECT_TRUE(isUnderWay());
}

}  // namespace
}  // namespace zeph
