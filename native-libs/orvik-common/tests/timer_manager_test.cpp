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
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/log.h"
#include "common/time_utils.h"
#include "platform/platform.h"
#include "support/fake_clock.h"

namespace orvik {
namespace {

using std::chrono::milliseconds;
using testing::FakeClock;

constexpr long long kT0 = 1721678328000;
constexpr auto kGenerous = std::chrono::seconds(10);

// Polls `condition` until it holds or a generous deadline passes; for states that no
// notification announces (a thread leaving, a callback entering).
bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kGenerous;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

// What fired, in order, with the wall-clock time of each firing in ms after kT0.
class Journal {
public:
    void Add(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        text_ << (count_++ == 0 ? "" : " ") << name << "@"
              << static_cast<long long>(TimeUtils::GetTimeMills()) - kT0;
        changed_.notify_all();
    }
    bool AwaitCount(int count, std::chrono::milliseconds limit = kGenerous) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return count_ >= count; });
    }
    std::string Text() {
        std::lock_guard<std::mutex> lock(mutex_);
        return text_.str();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::ostringstream text_;
    int count_ = 0;
};

// Keeps every line the library formats, whatever the console does with it.
class RecordingLogger : public Logger {
public:
    void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line, const char* func,
                 const char* fmt, va_list args) override {
        Logger::VFormat(level, out, file, line, func, fmt, args);
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(out);
    }
    int CountEndingWith(const std::string& tail, const std::string& level) {
        std::lock_guard<std::mutex> lock(mutex_);
        int count = 0;
        for (const std::string& line : lines_) {
            count += line.size() >= tail.size() &&
                     line.compare(line.size() - tail.size(), tail.size(), tail) == 0 &&
                     line.find("[" + level + "]") != std::string::npos;
        }
        return count;
    }
    bool AnyContains(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& line : lines_) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

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
        baselineThreads_ = withHelper < 0 ? -1 : withHelper - 1;
    }
    // The manager's thread must be gone before the clock and the journal are.
    void TearDown() override {
        TimerManager::GetInstance()->Stop();
        EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));
        // The leaving thread's last step took the manager's lock; taking it once more orders
        // all it did before what this thread destroys next.
        TimerManager::GetInstance()->Stop();
    }

    std::shared_ptr<OvTimer> Make(const std::string& name, unsigned long long period, bool loop,
                                  std::function<void()> also = nullptr) {
        auto timer = std::make_shared<OvTimer>(period, loop);
        timer->Init([this, name, also] {
            journal_.Add(name);
            if (also) {
                also();
            }
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

    int ExtraThreads() const {
        return baselineThreads_ < 0 ? 0 : platform::ProcessThreadCount() - baselineThreads_;
    }

    FakeClock clock_{At(0)};
    Journal journal_;
    int baselineThreads_ = -1;
};

TEST_F(TimerManagerTest, EqualDueTimesFireLatestStartedFirst) {
    auto a = Make("a", 100, false);
    auto b = Make("b", 100, false);
    auto c = Make("c", 50, false);
    ThenSleepsUntil(100, [&] { a->Start(); });
    ThenSleepsUntil(100, [&] { b->Start(); });
    ThenSleepsUntil(50, [&] { c->Start(); });

    AdvanceTo(100);
    ASSERT_TRUE(journal_.AwaitCount(3));
    EXPECT_EQ(journal_.Text(), "c@100 b@100 a@100");
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
    ASSERT_TRUE(journal_.AwaitCount(4));
    repeating->Stop();
    EXPECT_EQ(journal_.Text(), "r@100 n@200 r@200 x@200");
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
    EXPECT_EQ(journal_.Text(), "");
    EXPECT_EQ(a->GetExpire(), static_cast<unsigned long long>(kT0 + 160));
    EXPECT_EQ(a->GetUpdateExpire(), 0u);

    AdvanceTo(160);
    ASSERT_TRUE(journal_.AwaitCount(3));
    EXPECT_EQ(journal_.Text(), "a@160 c@160 d@160");
}

TEST_F(TimerManagerTest, UpdateBeforeStopIsAppliedAfterTheNextStart) {
    auto t = Make("t", 100, false);
    ThenSleepsUntil(100, [&] { t->Start(); });
    AdvanceTo(10);
    t->Update();  // 110
    t->Stop();
    AdvanceTo(50);
    ThenSleepsUntil(110, [&] { t->Start(); });  // 150, replaced by the waiting 110
    AdvanceTo(110);
    ASSERT_TRUE(journal_.AwaitCount(1));
    EXPECT_EQ(journal_.Text(), "t@110");
}

// The manager keeps due times of its own to spare a sort; a direct write of the published
// setters must still reach the next pass.
TEST_F(TimerManagerTest, DirectSetExpireIsSortedInByTheNextPass) {
    auto first = Make("first", 100, false);
    auto moved = Make("moved", 200, false);
    ThenSleepsUntil(100, [&] { first->Start(); });
    ThenSleepsUntil(100, [&] { moved->Start(); });
    moved->SetExpire(static_cast<unsigned long long>(kT0 + 50));
    AdvanceTo(100);
    ASSERT_TRUE(journal_.AwaitCount(2));
    EXPECT_EQ(journal_.Text(), "moved@100 first@100");
}

TEST_F(TimerManagerTest, CallbackLongerThanItsPeriodDoesNotStarveOtherDueTimers) {
    std::atomic<int> calls{0};
    std::shared_ptr<OvTimer> slow;
    slow = Make("slow", 10, true, [&] {
        clock_.Advance(milliseconds(50));  // the callback takes 50 ms
        if (++calls == 5) {
            slow->Stop();
        }
    });
    auto other = Make("other", 30, false);
    ThenSleepsUntil(10, [&] { slow->Start(); });
    ThenSleepsUntil(10, [&] { other->Start(); });

    AdvanceTo(10);
    ASSERT_TRUE(journal_.AwaitCount(6));
    // The next due time counts from the moment of firing, read before the callback.
    EXPECT_EQ(journal_.Text(), "slow@10 slow@60 other@110 slow@110 slow@160 slow@210");
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
    EXPECT_EQ(journal_.Text(), "b@100 a@100 d@150 b@200");
    ThenSleepsUntil(600, [&] { AdvanceTo(330); });
    AdvanceTo(600);
    ASSERT_TRUE(journal_.AwaitCount(6));
    EXPECT_EQ(journal_.Text(), "b@100 a@100 d@150 b@200 d@330 c@600");
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
    ASSERT_TRUE(journal_.AwaitCount(1));

    ThenSleepsUntil(400, [&] { t->Restart(); });
    AdvanceTo(400);
    ASSERT_TRUE(journal_.AwaitCount(2));
    EXPECT_EQ(journal_.Text(), "u@300 t@400");
    // The callback's own TimerManager::Stop cleared it again, and the thread ends.
    EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));
    EXPECT_TRUE(t->IsStart());
}

TEST_F(TimerManagerTest, ThreadEndsWithTheLastTimerAndTheNextTimerStartsANewOne) {
    if (baselineThreads_ < 0) {
        GTEST_SKIP() << "this system does not tell the thread count";
    }
    auto t = Make("t", 10, false);
    ThenSleepsUntil(10, [&] {
        t->Start();
        EXPECT_EQ(ExtraThreads(), 1);
    });
    AdvanceTo(10);
    ASSERT_TRUE(journal_.AwaitCount(1));
    EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));

    ThenSleepsUntil(20, [&] {
        t->Start();
        EXPECT_EQ(ExtraThreads(), 1);
    });
    AdvanceTo(20);
    ASSERT_TRUE(journal_.AwaitCount(2));
    EXPECT_EQ(journal_.Text(), "t@10 t@20");
}

TEST_F(TimerManagerTest, StartIgnoresZeroPeriodAndStartedTimersAndNeedsAnOwner) {
    auto zero = Make("zero", 0, true);
    zero->Start();
    EXPECT_FALSE(zero->IsStart());

    auto t = Make("t", 100, false);
    t->Start();
    AdvanceTo(40);
    t->Start();
    EXPECT_EQ(t->GetExpire(), static_cast<unsigned long long>(kT0 + 100));
    t->Restart();
    EXPECT_EQ(t->GetExpire(), static_cast<unsigned long long>(kT0 + 140));

    OvTimer unowned(100, false);
    EXPECT_THROW(unowned.Start(), std::bad_weak_ptr);
    EXPECT_THROW(unowned.Stop(), std::bad_weak_ptr);
    EXPECT_THROW(unowned.Update(), std::bad_weak_ptr);
    EXPECT_THROW(unowned.Restart(), std::bad_weak_ptr);
    EXPECT_FALSE(unowned.IsStart());
}

class ThrowingTimer : public Timer {
public:
    using Timer::Timer;
    void OnTimer() override { throw std::logic_error("raw failure"); }
};

TEST_F(TimerManagerTest, ExceptionsFromCallbacksAreLoggedAndTheThreadGoesOn) {
    auto logger = std::make_unique<RecordingLogger>();
    RecordingLogger& lines = *logger;
    Log::GetInstance().SetLogger(std::move(logger));

    auto uninitialised = std::make_shared<OvTimer>(100, true);
    auto failing = Make("failing", 100, false, [] { throw std::runtime_error("secret text"); });
    auto foreign = Make("foreign", 100, false, [] { throw 42; });
    auto raw = std::make_shared<ThrowingTimer>(100, false);
    auto after = Make("after", 200, false);
    for (const auto& timer :
         std::vector<std::shared_ptr<Timer>>{uninitialised, failing, foreign, raw, after}) {
        ThenSleepsUntil(100, [&] { timer->Start(); });
    }
    ThenSleepsUntil(200, [&] { AdvanceTo(100); });
    AdvanceTo(200);
    ASSERT_TRUE(journal_.AwaitCount(3));
    uninitialised->Stop();

    EXPECT_EQ(journal_.Text(), "foreign@100 failing@100 after@200");
    // Twice the uninitialised repeating timer, once the std::exception.
    EXPECT_EQ(lines.CountEndingWith("[orvik::OvTimer::OnTimer] exception", "ERROR"), 3);
    EXPECT_FALSE(lines.AnyContains("secret text"));
    // What OvTimer does not catch, the manager does.
    EXPECT_EQ(lines.CountEndingWith("[orvik::TimerManager::Run] timer callback threw: raw failure",
                                    "ERROR"),
              1);
    EXPECT_EQ(lines.CountEndingWith(
                  "[orvik::TimerManager::Run] timer callback threw an exception of unknown type",
                  "ERROR"),
              1);
}

TEST_F(TimerManagerTest, ClockSetBackDelaysTimersByTheSameAmount) {
    auto t = Make("t", 100, false);
    ThenSleepsUntil(100, [&] { t->Start(); });
    clock_.Advance(-std::chrono::hours(1));
    clock_.Advance(milliseconds(100));
    EXPECT_TRUE(clock_.AwaitWaiter(At(100)));
    EXPECT_EQ(journal_.Text(), "");
    AdvanceTo(100);  // an hour later
    ASSERT_TRUE(journal_.AwaitCount(1));
    EXPECT_EQ(journal_.Text(), "t@100");
}

// After TimerManager::Stop the old thread may still be inside a callback; a thread launched
// by the next AddTimer fires nothing until the old one has left.
TEST_F(TimerManagerTest, AddTimerRightAfterStopNeverRunsTwoCallbacksAtOnce) {
    std::mutex gate;
    std::unique_lock<std::mutex> closed(gate);
    std::atomic<int> inside{0}, mostInside{0};
    std::atomic<bool> blockedEntered{false};
    const auto enter = [&] {
        const int now = ++inside;
        if (now > mostInside) {
            mostInside = now;
        }
    };
    auto blocked = std::make_shared<OvTimer>(10, false);
    blocked->Init([&] {
        enter();
        blockedEntered = true;
        std::lock_guard<std::mutex> wait(gate);
        --inside;
    });
    auto next = Make("next", 10, false, [&] {
        enter();
        --inside;
    });

    ThenSleepsUntil(10, [&] { blocked->Start(); });
    AdvanceTo(10);
    ASSERT_TRUE(Eventually([&] { return blockedEntered.load(); }));
    TimerManager::GetInstance()->Stop();
    next->Start();
    AdvanceTo(20);
    EXPECT_FALSE(journal_.AwaitCount(1, milliseconds(100)));  // held back, not lost

    closed.unlock();
    ASSERT_TRUE(journal_.AwaitCount(1));
    EXPECT_EQ(mostInside.load(), 1);
    EXPECT_TRUE(Eventually([&] { return ExtraThreads() == 0; }));
}

// The process exits with timers asleep, with a callback running, and right after Stop.
enum class ExitMoment { kTimersStarted, kCallbackRunning, kJustStopped };

std::mutex neverOpened;

[[noreturn]] void StartTimersAndExit(ExitMoment moment) {
    static std::atomic<int> fired{0};
    static std::atomic<bool> entered{false};
    std::vector<std::shared_ptr<OvTimer>> timers;
    for (int i = 0; i < 16; ++i) {
        timers.push_back(std::make_shared<OvTimer>(1 + i % 3, i % 2 == 0));
        timers.back()->Init([] { ++fired; });
        timers.back()->Start();
    }
    if (moment == ExitMoment::kCallbackRunning) {
        neverOpened.lock();
        auto blocking = std::make_shared<OvTimer>(1, false);
        blocking->Init([] {
            entered = true;
            std::lock_guard<std::mutex> forever(neverOpened);
        });
        blocking->Start();
        Eventually([] { return entered.load(); });
    } else if (moment == ExitMoment::kJustStopped) {
        Eventually([] { return fired.load() > 0; });
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
