#include "common/timer_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/log.h"
#include "common/time_utils.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/fake_clock.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using std::chrono::milliseconds;
using testing::FakeClock;

// The log lines of timers firing at kT0 + 100 read 2024-07-22 19:58:48.7, local time.
const long long kT0 = FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 7) - 100;
constexpr milliseconds kGenerous = std::chrono::seconds(10);

// Polls for states that nothing announces (a thread leaving, a callback entering). It sleeps
// for real: the library's sleep would move the fake clock.
bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 10000 && !condition(); ++i) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    return condition();
}

class TimerManagerTest : public ::testing::Test {
protected:
    // Counted while a helper thread runs, since a sanitizer starts a thread of its own with
    // the first thread of the process, and a joined thread may still be listed for a moment.
    void SetUp() override {
        std::promise<void> release;
        std::thread helper([&] { release.get_future().wait(); });
        const int withHelper = platform::ProcessThreadCount();
        release.set_value();
        helper.join();
        baseline_ = withHelper < 0 ? -1 : withHelper - 1;
    }
    // The manager's thread must be gone before the clock and the journal are. Its last step
    // took the manager's lock; the second Stop takes it too, ordering that step before ours.
    void TearDown() override {
        TimerManager::GetInstance()->Stop();
        EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));
        TimerManager::GetInstance()->Stop();
    }
    int ExtraThreads() const {
        return baseline_ < 0 ? 0 : platform::ProcessThreadCount() - baseline_;
    }

    // Journals "name@ms", ms after kT0.
    void Note(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        journal_ += (journal_.empty() ? "" : " ") + name + "@" +
                    std::to_string(static_cast<long long>(TimeUtils::GetTimeMills()) - kT0);
        ++notes_;
        noted_.notify_all();
    }
    // The journal once it has `count` entries, or as it is after `limit`.
    std::string Journal(int count = 0, milliseconds limit = kGenerous) {
        std::unique_lock<std::mutex> lock(mutex_);
        noted_.wait_for(lock, limit, [&] { return notes_ >= count; });
        return journal_;
    }
    // A timer that journals its name, then runs `also`.
    std::shared_ptr<OvTimer> Make(
        const std::string& name, unsigned long long period, bool loop,
        std::function<void()> also = [] {}) {
        auto timer = std::make_shared<OvTimer>(period, loop);
        timer->Init([this, name, also] {
            Note(name);
            also();
        });
        return timer;
    }

    static std::chrono::system_clock::time_point At(long long ms) {
        return FakeClock::AtMillis(kT0 + ms);
    }
    void AdvanceTo(long long ms) { clock_.Set(At(ms)); }
    // Runs `action` and waits until the manager's thread, having seen it, sleeps until `ms`.
    void ThenSleepsUntil(long long ms, const std::function<void()>& action) {
        const std::uint64_t before = clock_.WaitsBegun();
        action();
        EXPECT_TRUE(clock_.AwaitWaiter(At(ms), before)) << "not asleep until " << ms;
    }

    FakeClock clock_{At(0)};
    std::mutex mutex_;
    std::condition_variable noted_;
    std::string journal_;
    int notes_ = 0;
    int baseline_ = -1;
};

// Among equal due times the latest started fires first. A due time written through the
// published setter is sorted in by the next pass.
TEST_F(TimerManagerTest, FiresByDueTimeThenLatestStartedAndSortsInDirectWrites) {
    auto a = Make("a", 100, false);
    auto b = Make("b", 100, false);
    auto c = Make("c", 50, false);
    auto moved = Make("m", 200, false);
    ThenSleepsUntil(100, [&] { a->Start(); });
    ThenSleepsUntil(100, [&] { b->Start(); });
    ThenSleepsUntil(50, [&] { c->Start(); });
    ThenSleepsUntil(50, [&] { moved->Start(); });
    moved->SetExpire(static_cast<unsigned long long>(kT0 + 60));
    AdvanceTo(100);
    EXPECT_EQ(Journal(4), "c@100 m@100 b@100 a@100");
}

// The fired timer stands at the front with its new due time until the next pass sorts it:
// ahead of timers already due then, behind a newcomer inserted in front of it meanwhile.
TEST_F(TimerManagerTest, FiredRepeatingTimerIsPlacedByTheNextPass) {
    auto newcomer = Make("n", 100, false);
    std::atomic<int> calls{0};
    auto repeating = Make("r", 100, true, [&] {
        if (calls++ == 0) {
            newcomer->Start();  // due 200, like the repeating timer's next firing
        }
    });
    auto waiting = Make("x", 200, false);
    ThenSleepsUntil(100, [&] { repeating->Start(); });
    ThenSleepsUntil(100, [&] { waiting->Start(); });
    ThenSleepsUntil(200, [&] { AdvanceTo(100); });
    AdvanceTo(200);
    EXPECT_EQ(Journal(4), "r@100 n@200 r@200 x@200");
    repeating->Stop();
}

TEST_F(TimerManagerTest, UpdatesWaitForTheNextPassAndKeepTheListOrder) {
    auto a = Make("a", 100, false);
    auto c = Make("c", 100, false);
    auto d = Make("d", 100, false);
    ThenSleepsUntil(100, [&] { a->Start(); });
    AdvanceTo(10);
    ThenSleepsUntil(100, [&] { c->Start(); });  // due 110
    AdvanceTo(60);
    ThenSleepsUntil(100, [&] { d->Start(); });  // due 160
    a->Update();
    c->Update();  // both to 160, where d already stands
    EXPECT_EQ(a->GetExpire(), static_cast<unsigned long long>(kT0 + 100));
    EXPECT_EQ(a->GetUpdateExpire(), static_cast<unsigned long long>(kT0 + 160));

    // The thread wakes at the old due time, takes the updates over and fires nothing.
    ThenSleepsUntil(160, [&] { AdvanceTo(100); });
    EXPECT_EQ(Journal(), "");
    EXPECT_EQ(a->GetUpdateExpire(), 0u);
    AdvanceTo(160);
    EXPECT_EQ(Journal(3), "a@160 c@160 d@160");
}

TEST_F(TimerManagerTest, UpdateBeforeStopIsAppliedAfterTheNextStart) {
    auto t = Make("t", 100, false);
    auto other = Make("o", 1000, false);  // keeps passes going while t is stopped
    ThenSleepsUntil(100, [&] {
        other->Start();
        t->Start();
    });
    AdvanceTo(10);
    ThenSleepsUntil(1000, [&] {
        t->Update();  // 110
        t->Stop();
    });
    AdvanceTo(50);
    ThenSleepsUntil(110, [&] { t->Start(); });  // 150, replaced by the waiting 110
    AdvanceTo(110);
    EXPECT_EQ(Journal(1), "t@110");
}

TEST_F(TimerManagerTest, CallbackLongerThanItsPeriodDoesNotStarveOtherDueTimers) {
    std::atomic<int> calls{0};
    std::shared_ptr<OvTimer> slow = Make("slow", 10, true, [&] {
        clock_.Advance(milliseconds(50));  // the callback takes 50 ms
        if (++calls == 5) {
            slow->Stop();
        }
    });
    auto other = Make("other", 30, false);
    ThenSleepsUntil(10, [&] { slow->Start(); });
    ThenSleepsUntil(10, [&] { other->Start(); });
    AdvanceTo(10);
    // The next due time counts from the moment of firing, read before the callback.
    EXPECT_EQ(Journal(6), "slow@10 slow@60 other@110 slow@110 slow@160 slow@210");
}

TEST_F(TimerManagerTest, CallbacksStartStopRestartAndUpdateTimersOnTheManagerThread) {
    std::shared_ptr<OvTimer> a, b, c, d;
    std::atomic<int> bCalls{0}, dCalls{0};
    a = Make("a", 100, true, [&] { a->Stop(); });
    b = Make("b", 100, false, [&] {
        if (bCalls++ == 0) {
            b->Start();    // a one-shot timer re-arms itself
            c->Restart();  // and moves another: 100 + 500
        }
    });
    c = Make("c", 500, false);
    d = Make("d", 150, true, [&] {
        if (dCalls++ == 0) {
            clock_.Advance(milliseconds(30));
            d->Update();  // re-armed from 180: due 330, not 300
        } else {
            d->Stop();
        }
    });
    for (const auto& timer : {a, b, c, d}) {
        ThenSleepsUntil(100, [&] { timer->Start(); });
    }
    ThenSleepsUntil(150, [&] { AdvanceTo(100); });
    ThenSleepsUntil(200, [&] { AdvanceTo(150); });
    ThenSleepsUntil(330, [&] { AdvanceTo(200); });
    AdvanceTo(300);
    EXPECT_EQ(Journal(), "b@100 a@100 d@150 b@200");
    ThenSleepsUntil(600, [&] { AdvanceTo(330); });
    AdvanceTo(600);
    EXPECT_EQ(Journal(6), "b@100 a@100 d@150 b@200 d@330 c@600");
}

TEST_F(TimerManagerTest, ManagerStopLeavesTimersClearedUntilRestart) {
    auto t = Make("t", 100, true, [] { TimerManager::GetInstance()->Stop(); });
    auto u = Make("u", 300, false);
    t->Start();
    TimerManager::GetInstance()->Stop();
    EXPECT_TRUE(t->IsStart());
    t->Start();  // Cleared: refused
    ThenSleepsUntil(300, [&] { u->Start(); });
    AdvanceTo(300);
    EXPECT_EQ(Journal(1), "u@300");

    ThenSleepsUntil(400, [&] { t->Restart(); });
    AdvanceTo(400);
    EXPECT_EQ(Journal(2), "u@300 t@400");
    // The callback's own TimerManager::Stop cleared it again, and the thread ends.
    EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));
    EXPECT_TRUE(t->IsStart());
}

TEST_F(TimerManagerTest, ThreadEndsWithTheLastTimerAndTheNextTimerStartsANewOne) {
    if (baseline_ < 0) {
        GTEST_SKIP() << "this system does not tell the thread count";
    }
    auto zero = Make("zero", 0, true);
    zero->Start();  // a period of 0 never starts, nor launches a thread
    EXPECT_FALSE(zero->IsStart());
    EXPECT_EQ(ExtraThreads(), 0);
    auto t = Make("t", 10, false);
    ThenSleepsUntil(10, [&] {
        t->Start();
        EXPECT_EQ(ExtraThreads(), 1);
    });
    AdvanceTo(5);
    t->Start();  // started already: stays due at 10, once
    AdvanceTo(10);
    EXPECT_EQ(Journal(1), "t@10");
    EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));

    ThenSleepsUntil(20, [&] {
        t->Start();
        EXPECT_EQ(ExtraThreads(), 1);
    });
    AdvanceTo(20);
    EXPECT_EQ(Journal(2), "t@10 t@20");
}

class ThrowingTimer : public Timer {
public:
    using Timer::Timer;
    void OnTimer() override { throw std::logic_error("raw failure"); }
};

TEST_F(TimerManagerTest, ExceptionsFromCallbacksAreLoggedAndTheThreadGoesOn) {
    testing::ConsoleCapture console;
    // Started in this order, they fire in the reverse one; `last` shows the thread went on.
    auto last = Make("last", 100, false);
    auto foreign = Make("foreign", 100, false, [] { throw 42; });
    auto raw = std::make_shared<ThrowingTimer>(100, false);
    auto failing = Make("failing", 100, false, [] { throw std::runtime_error("secret text"); });
    for (const auto& timer : std::vector<std::shared_ptr<Timer>>{last, foreign, raw, failing}) {
        ThenSleepsUntil(100, [&] { timer->Start(); });
    }
    AdvanceTo(100);
    EXPECT_EQ(Journal(3), "failing@100 foreign@100 last@100");
    // OvTimer catches a std::exception and leaves its text out; the manager catches the rest.
    const auto error = [](const std::string& func, const std::string& message) {
        return testing::LibraryLine("ERROR", "src/timer_manager.cpp", "orvik::" + func, message);
    };
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
              error("OvTimer::OnTimer", "exception") +
                  error("TimerManager::Run", "timer callback threw: raw failure") +
                  error("TimerManager::Run", "timer callback threw an exception of unknown type"));
}

// Due times are wall-clock times: set back by an hour, a timer fires an hour later.
TEST_F(TimerManagerTest, ClockSetBackDelaysTimersByTheSameAmount) {
    auto t = Make("t", 100, false);
    auto waker = Make("w", 2 * 3600 * 1000, false);
    ThenSleepsUntil(100, [&] { t->Start(); });
    ThenSleepsUntil(100, [&] {
        clock_.Advance(-std::chrono::hours(1));
        waker->Start();  // a pass an hour back, due an hour ahead: t still first
    });
    EXPECT_EQ(Journal(), "");
    AdvanceTo(100);
    EXPECT_EQ(Journal(1), "t@100");
}

// After TimerManager::Stop the old thread may still be inside a callback. Timers started next
// fire on time on a new thread; the blocked timer, started again and due first, is held back
// until its old callback has returned, so no two callbacks of one timer run at once.
TEST_F(TimerManagerTest, TimersStartedAfterStopFireOnTimeBesideAnOldCallback) {
    std::mutex gate;
    std::unique_lock<std::mutex> closed(gate);
    auto blocked = Make("in", 10, false, [&] {
        { std::lock_guard<std::mutex> wait(gate); }
        Note("out");  // last: the test may end, and `gate` with it, once this is noted
    });
    auto next = Make("next", 10, false);
    ThenSleepsUntil(10, [&] { blocked->Start(); });
    AdvanceTo(10);
    ASSERT_EQ(Journal(1), "in@10");
    TimerManager::GetInstance()->Stop();
    next->Start();
    blocked->Start();  // the latest started fires first among equal due times
    AdvanceTo(20);
    EXPECT_EQ(Journal(2), "in@10 next@20");
    EXPECT_EQ(Journal(3, milliseconds(100)), "in@10 next@20");  // held back
    closed.unlock();
    EXPECT_EQ(Journal(5), "in@10 next@20 out@20 in@20 out@20");
}

// The process exits with timers asleep, with a callback running, and right after Stop.
enum class ExitMoment { kTimersStarted, kCallbackRunning, kJustStopped };

std::mutex exitGate;  // held for ever at kCallbackRunning
std::atomic<int> fired{0};

[[noreturn]] void StartTimersAndExit(ExitMoment moment) {
    if (moment == ExitMoment::kCallbackRunning) {
        exitGate.lock();
    }
    std::vector<std::shared_ptr<OvTimer>> timers;
    for (int i = 0; i < 16; ++i) {
        timers.push_back(std::make_shared<OvTimer>(1 + i % 3, i % 2 == 0));
        timers.back()->Init([] {
            ++fired;
            std::lock_guard<std::mutex> pass(exitGate);
        });
        timers.back()->Start();
    }
    if (moment != ExitMoment::kTimersStarted) {
        Eventually([] { return fired.load() > 0; });
    }
    if (moment == ExitMoment::kJustStopped) {
        TimerManager::GetInstance()->Stop();
    }
    std::exit(0);
}

TEST(TimerManagerExitTest, ProcessExitsCleanlyWhateverTheTimersAreDoing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int round = 0; round < 6; ++round) {
        for (ExitMoment moment :
             {ExitMoment::kTimersStarted, ExitMoment::kCallbackRunning, ExitMoment::kJustStopped}) {
            SCOPED_TRACE(::testing::Message()
                         << "round " << round << " moment " << static_cast<int>(moment));
            EXPECT_EXIT(StartTimersAndExit(moment), ::testing::ExitedWithCode(0), "");
        }
    }
}

}  // namespace
}  // namespace orvik
