#include "common/timer_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/latch.h"
#include "common/time_utils.h"
#include "platform/platform.h"
#include "support/console_capture.h"
#include "support/eventually.h"
#include "support/library_log_lines.h"

namespace orvik {
namespace {

using testing::FakeClock;

// The log lines of timers firing at kT0 + 100 read 2024-07-22 19:58:48.7, local time.
const long long kT0 = FakeClock::LocalMillis(2024, 7, 22, 19, 58, 48, 7) - 100;

class TimerManagerTest : public ::testing::Test {
protected:
    // Counted beside a helper thread: a sanitizer starts one with the process's first thread.
    void SetUp() override {
        std::thread([this] { baseline_ = platform::ProcessThreadCount() - 1; }).join();
    }
    // The thread must end before the clock and the journal; the second Stop orders its last step.
    void TearDown() override {
        TimerManager::GetInstance()->Stop();
        EXPECT_TRUE(testing::Eventually([&] { return ExtraThreads() == 0; }));
        TimerManager::GetInstance()->Stop();
    }
    int ExtraThreads() const {
        return baseline_ < 0 ? 0 : platform::ProcessThreadCount() - baseline_;
    }

    // Journals "name@ms", ms after kT0.
    void Note(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        const long long ms = static_cast<long long>(TimeUtils::GetTimeMills()) - kT0;
        journal_ += (journal_.empty() ? "" : " ") + name + "@" + std::to_string(ms);
        ++notes_;
        noted_.notify_all();
    }
    // The journal once it has `count` entries, or as it is after `limit`.
    std::string Journal(int count = 0, int limitMs = 10000) {
        std::unique_lock<std::mutex> lock(mutex_);
        noted_.wait_for(lock, std::chrono::milliseconds(limitMs), [&] { return notes_ >= count; });
        return journal_;
    }
    // A timer that journals its name, then runs `also` with the number of this call.
    auto Make(
        std::string name, int period, bool loop, std::function<void(int)> also = [](int) {}) {
        auto timer = std::make_shared<OvTimer>(period, loop);
        timer->Init([this, name, also, calls = 0]() mutable { Note(name), also(++calls); });
        return timer;
    }

    void AdvanceTo(long long ms) { clock_.Set(FakeClock::AtMillis(kT0 + ms)); }
    // Runs `action` and waits until the manager's thread, having seen it, sleeps until `ms`.
    void ThenSleepsUntil(long long ms, const std::function<void()>& action) {
        const auto before = clock_.WaitsBegun();
        action();
        EXPECT_TRUE(clock_.AwaitWaiter(FakeClock::AtMillis(kT0 + ms), before))
            << "not asleep until " << ms;
    }
    void StartAll(long long ms, std::initializer_list<std::shared_ptr<Timer>> timers) {
        for (const auto& timer : timers) {
            ThenSleepsUntil(ms, [&] { timer->Start(); });
        }
    }

    FakeClock clock_{FakeClock::AtMillis(kT0)};
    std::mutex mutex_;
    std::condition_variable noted_;
    std::string journal_;
    int notes_ = 0, baseline_ = -1;
};

struct ThrowingTimer : Timer {
    using Timer::Timer;
    void OnTimer() override { throw std::logic_error("raw failure"); }
};

// Equal due times: latest started first; SetExpire sorted at the next pass; wall clock due times.
TEST_F(TimerManagerTest, FiresByDueTimeThenLatestStartedAndLogsExceptions) {
    testing::ConsoleCapture console;
    auto moved = Make("m", 200, false);
    StartAll(100, {Make("a", 100, false), Make("b", 100, false, [](int) { throw 42; }),
                   std::make_shared<ThrowingTimer>(100, false),
                   Make("f", 100, false, [](int) { throw std::runtime_error("secret"); })});
    StartAll(50, {Make("c", 50, false), moved});
    moved->SetExpire(static_cast<unsigned long long>(kT0 + 60));
    ThenSleepsUntil(50, [&] {
        clock_.Advance(-std::chrono::hours(1));
        Make("w", 2 * 3600 * 1000, false)->Start();  // a pass an hour back: c still first
    });
    EXPECT_EQ(Journal(), "");
    AdvanceTo(100);
    EXPECT_EQ(Journal(5), "c@100 m@100 f@100 b@100 a@100");
    const auto error = [](const std::string& func, const std::string& message) {
        return testing::LibraryLine("ERROR", "src/timer_manager.cpp", "orvik::" + func, message);
    };
    EXPECT_EQ(testing::MaskLineNumbers(console.Text()),
              error("OvTimer::OnTimer", "exception") +
                  error("TimerManager::Run", "timer callback threw: raw failure") +
                  error("TimerManager::Run", "timer callback threw an exception of unknown type"));
}

// Updates wait for the next pass (the wake at the old due time fires nothing), across Stop too.
TEST_F(TimerManagerTest, UpdatesWaitForTheNextPassAndKeepTheListOrder) {
    auto a = Make("a", 100, false), c = Make("c", 100, false), d = Make("d", 100, false),
         t = Make("t", 100, false);
    StartAll(100, {a, t});
    AdvanceTo(10);
    ThenSleepsUntil(100, [&] { c->Start(), t->Update(), t->Stop(); });  // c due 110, t to 110
    AdvanceTo(50);
    StartAll(100, {t});  // due 150, replaced by the waiting 110
    AdvanceTo(60);
    StartAll(100, {d});  // due 160
    a->Update();
    c->Update();  // both to 160, where d already stands
    ThenSleepsUntil(110, [&] { AdvanceTo(100); });
    EXPECT_EQ(Journal(), "");
    EXPECT_EQ(a->GetUpdateExpire(), 0u);
    ThenSleepsUntil(160, [&] { AdvanceTo(110); });
    AdvanceTo(160);
    EXPECT_EQ(Journal(4), "t@110 a@160 c@160 d@160");
}

// A fired timer stays in front until the next pass; a newcomer due as late goes ahead of it.
TEST_F(TimerManagerTest, CallbacksStartStopRestartAndUpdateTimersOnTheManagerThread) {
    std::shared_ptr<OvTimer> a, b, c, d, n = Make("n", 100, false);
    a = Make("a", 100, true, [&](int call) { call == 1 ? n->Start() : a->Stop(); });
    b = Make("b", 100, false, [&](int call) { call == 1 ? b->Start(), c->Restart() : void(); });
    c = Make("c", 500, false);  // b's first call re-arms b and moves c to 100 + 500
    d = Make("d", 150, true, [&](int call) {
        clock_.Advance(std::chrono::milliseconds(call == 1 ? 30 : 0));
        call == 1 ? d->Update() : d->Stop();  // re-armed from 180: due 330, not 300
    });
    StartAll(100, {a, b, c, d});
    ThenSleepsUntil(150, [&] { AdvanceTo(100); });
    ThenSleepsUntil(200, [&] { AdvanceTo(150); });
    ThenSleepsUntil(330, [&] { AdvanceTo(200); });
    AdvanceTo(300);
    EXPECT_EQ(Journal(), "b@100 a@100 d@150 n@200 a@200 b@200");
    ThenSleepsUntil(600, [&] { AdvanceTo(330); });
    AdvanceTo(600);
    EXPECT_EQ(Journal(8), "b@100 a@100 d@150 n@200 a@200 b@200 d@330 c@600");
}

// The thread lives while timers run; TimerManager::Stop clears timers but marks them started.
TEST_F(TimerManagerTest, ThreadLivesWhileTimersRunAndManagerStopClearsThemUntilRestart) {
    auto zero = Make("zero", 0, true);
    zero->Start();
    EXPECT_FALSE(zero->IsStart());
    EXPECT_EQ(ExtraThreads(), 0);
    auto s = Make("s", 100, true, [](int) { TimerManager::GetInstance()->Stop(); });
    s->Start();
    TimerManager::GetInstance()->Stop();
    EXPECT_TRUE(s->IsStart());
    s->Start();                              // refused
    StartAll(300, {Make("u", 300, false)});  // on a new thread
    AdvanceTo(300);
    EXPECT_EQ(Journal(1), "u@300");
    EXPECT_TRUE(testing::Eventually([&] { return ExtraThreads() == 0; }));  // u was the last
    ThenSleepsUntil(400, [&] { s->Restart(); });
    AdvanceTo(400);
    EXPECT_EQ(Journal(2), "u@300 s@400");
    EXPECT_TRUE(testing::Eventually([&] { return ExtraThreads() == 0; }));  // s's callback Stop
}

// After Stop, a new thread fires on time; a timer still in its old callback waits for it.
TEST_F(TimerManagerTest, TimersStartedAfterStopFireOnTimeBesideAnOldCallback) {
    CountDownLatch gate(1);  // Note comes last: once it is noted, the test may end
    auto blocked = Make("in", 10, false, [&](int) { gate.Wait(0), Note("out"); });
    StartAll(10, {blocked});
    AdvanceTo(10);
    ASSERT_EQ(Journal(1), "in@10");
    TimerManager::GetInstance()->Stop();
    Make("next", 10, false)->Start();
    blocked->Start();  // the latest started fires first among equal due times
    AdvanceTo(20);
    EXPECT_EQ(Journal(2), "in@10 next@20");
    EXPECT_EQ(Journal(3, 100), "in@10 next@20");  // held back
    gate.CountDown();
    EXPECT_EQ(Journal(5), "in@10 next@20 out@20 in@20 out@20");
}

// The list as the plain rules keep it: entries in list order, a newcomer inserted by a walk from
// the front, updates taken over and a stable sort on every pass, a fired repeating timer left
// at the front until the next pass.
class PlainTimerList {
public:
    struct State {
        unsigned long long timeout;
        bool loop;
        unsigned long long expire = 0, update = 0;
        bool started = false;
    };
    std::vector<State> timers;

    void Add(int id, unsigned long long now) {
        State& timer = timers[id];
        if (timer.timeout != 0 && !timer.started) {
            timer.started = true;
            timer.expire = timer.timeout + now;
            list_.insert(std::find_if(list_.begin(), list_.end(),
                                      [&](int other) { return timers[other].expire >= timer.expire; }),
                         id);
        }
    }
    void Delete(int id) {
        if (std::exchange(timers[id].started, false)) {
            list_.erase(std::remove(list_.begin(), list_.end(), id), list_.end());
        }
    }
    void Update(int id, unsigned long long now) {
        if (timers[id].started) {
            timers[id].update = timers[id].timeout + now;
        }
    }
    // The timer a pass at `now` fires, or -1.
    int Pass(unsigned long long now) {
        for (int id : list_) {
            if (timers[id].update != 0) {
                timers[id].expire = std::exchange(timers[id].update, 0);
            }
        }
        std::stable_sort(list_.begin(), list_.end(),
                         [&](int a, int b) { return timers[a].expire < timers[b].expire; });
        if (list_.empty() || timers[list_.front()].expire > now) {
            return -1;
        }
        const int first = list_.front();
        if (timers[first].loop) {
            timers[first].expire = now + timers[first].timeout;
        } else {
            timers[first].started = false;
            list_.erase(list_.begin());
        }
        return first;
    }

private:
    std::vector<int> list_;
};

// Random starts, stops, updates, direct writes, clock steps and passes, each on a manager whose
// thread the system refuses (so that only the test's passes fire) and on the plain list.
TEST(TimerListTest, PassesFireWhatAPlainSortedListFires) {
    if (!platform::RefuseNewThreadsForTesting(true)) {
        GTEST_SKIP() << "threads cannot be refused here";
    }
    FakeClock clock(FakeClock::AtMillis(kT0));
    for (unsigned seed = 1; seed <= 400; ++seed) {
        std::mt19937 random(seed);
        const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
        TimerManager manager;
        PlainTimerList plain;
        std::vector<std::shared_ptr<OvTimer>> real;
        for (int id = 0; id < 10; ++id) {
            plain.timers.push_back({static_cast<unsigned long long>(pick(5)), pick(2) == 0});
            real.push_back(std::make_shared<OvTimer>(plain.timers.back().timeout,
                                                     plain.timers.back().loop));
        }
        for (int step = 0; step < 300; ++step) {
            const unsigned long long now = TimeUtils::GetTimeMills();
            const int id = pick(10);
            switch (pick(13)) {
                case 0: case 1: case 2:
                    try {
                        manager.AddTimer(real[id]);
                    } catch (const std::system_error&) {  // the first start launches no thread
                    }
                    plain.Add(id, now);
                    break;
                case 3: manager.DeleteTimer(real[id]), plain.Delete(id); break;
                case 4: manager.UpdateTimer(real[id]), plain.Update(id, now); break;
                case 5:
                    real[id]->SetExpire(now + static_cast<unsigned long long>(pick(6)));
                    plain.timers[id].expire = real[id]->GetExpire();
                    break;
                case 12:
                    real[id]->SetUpdateExpire(now + static_cast<unsigned long long>(pick(6)));
                    plain.timers[id].update = real[id]->GetUpdateExpire();
                    break;
                case 6:
                    real[id]->SetStartState(false);  // misuse: a second Start adds a second entry
                    plain.timers[id].started = false;
                    break;
                case 7: clock.Advance(std::chrono::milliseconds(1 + pick(3))); break;
                default: {
                    const std::shared_ptr<Timer> fired = manager.GetTimeoutTimer();
                    const int expected = plain.Pass(now);
                    const auto firedId = std::find(real.begin(), real.end(), fired) - real.begin();
                    ASSERT_EQ(fired ? firedId : -1, expected)
                        << "seed " << seed << ", step " << step;
                }
            }
            for (int each = 0; each < 10; ++each) {
                ASSERT_EQ(real[each]->GetExpire(), plain.timers[each].expire)
                    << "seed " << seed << ", step " << step << ", timer " << each;
                ASSERT_EQ(real[each]->IsStart(), plain.timers[each].started);
            }
        }
    }
    platform::RefuseNewThreadsForTesting(false);
}

}  // namespace
}  // namespace orvik
