#include "common/timer_manager.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <iterator>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/time_utils.h"
#include "internal/internal_log.h"
#include "internal/never_destroyed.h"
#include "platform/platform.h"

namespace orvik {
namespace {

// Set by the public setters of Timer, without the manager's mutex, so that a pass after a
// direct write re-reads every timer instead of trusting the due times it keeps.
std::atomic<bool> timerFieldsWrittenDirectly{false};

// The longest single wait of the manager's thread. Longer waits (a clock set back by years)
// are cut into pieces: the thread wakes, finds nothing due, and sleeps again.
constexpr long long kLongestWaitMs = 365LL * 24 * 3600 * 1000;

// A first entry due in exactly 0 ms is waited for with up to this many milliseconds.
constexpr long long kDueNowWaitMs = 500;

}  // namespace

namespace detail {

// The manager's list of started timers, in the order in which they fire.
//
// The order is that of a plain list: a newcomer is inserted by a walk from the front, before
// the first entry due at the same time or later; every pass takes waiting updates over and
// sorts the list by due time with a stable sort; a repeating timer that fired stays at the
// front with its new due time until the next pass. Instead of that list, entries are kept in
// buckets of one due time each, in a map by due time. Within a bucket the back fires first:
// a newcomer and a timer that fired rank first among equal due times, as the walk and the
// stable sort put them, so both are pushed at the back. A pass takes the back of the first
// bucket, and a firing one pushes it onto the bucket of its new due time, where the timers
// fired in the same millisecond already stand. Buckets are built only once per due time.
//
// The list order that a sort starts from matters beyond that only in a pass that takes
// updates over. That pass rebuilds the list order (the fired timer and the newcomers walked
// in before it, then the rest), re-reads every due time and sorts the whole list. Where the
// due times kept may differ from the timers' own (after a direct call of Timer's published
// setters, or for a timer that stands twice because SetStartState was misused), newcomers
// are walked into an explicit copy of the list order until the next pass, which sorts it.
//
// Not thread-safe: the manager holds its mutex around every call.
class TimerList {
public:
    bool Empty() const { return byDue.empty() && walked.empty(); }

    // The pass of GetTimeoutTimer: reads the clock, settles the list, and returns the timer to
    // fire now (moved to its next due time or removed), or an empty pointer.
    std::shared_ptr<Timer> TakeDue() {
        const auto sinceEpoch = platform::WallClockNow().time_since_epoch();
        const auto wholeMs = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch);
        // The reading TimeUtils::GetTimeMills would give, and what it cuts off.
        const auto now = static_cast<unsigned long long>(wholeMs.count());
        passTime = now;
        passFraction = sinceEpoch - wholeMs;
        if (Empty()) {
            return nullptr;
        }
        Settle();
        const auto first = byDue.begin();
        std::shared_ptr<Timer> timer = first->second.back();
        if (first->second.size() > 1) {
            PrefetchTimer(first->second.end()[-2].get());
        }
        if (!timer) {
            // The manager's own name: this pass is its GetTimeoutTimer.
            Log::GetInstance().DoLog(LOG_LEVEL_ERROR, __FILE__, __LINE__,
                                     "orvik::TimerManager::GetTimeoutTimer", "empty item");
            return nullptr;
        }
        if (first->first > now) {
            return nullptr;
        }
        if (timer->GetLoop()) {
            const unsigned long long due = now + timer->GetTimeout();
            timer->StoreExpire(due);
            RescheduleFirst(first, due);
        } else {
            timer->SetStartState(false);
            RemoveFirst(first);
        }
        return timer;
    }

    // The first entry, once a pass has settled the list.
    const std::shared_ptr<Timer>& First() const { return byDue.begin()->second.back(); }

    void Insert(const std::shared_ptr<Timer>& timer, unsigned long long due) {
        const int entries = ++entriesOf[timer.get()];
        if (entries > 1) {
            // Its earlier entries now keep a due time that the timer no longer has.
            timersStandingTwice += entries == 2 ? 1 : 0;
            dueTimesStale = true;
        }
        if (!walked.empty() || DueTimesMayBeStale()) {
            WalkIn(timer);
        } else {
            BucketAt(due).push_back(timer);
            // Walked in from the front, it would stand before the fired timer.
            if (!frontRun.empty() && due <= FrontRunLastDue()) {
                frontRun.push_back({due, timer.get(), ++pushes});
            }
        }
        // An Update followed by Stop left a due time waiting for this timer's next pass.
        if (timer->GetUpdateExpire() != 0) {
            updatesWaiting = true;
        }
    }

    void RemoveAll(Timer* timer) {
        const auto found = entriesOf.find(timer);
        if (found == entriesOf.end()) {
            return;
        }
        int entries = found->second;
        timersStandingTwice -= entries > 1 ? 1 : 0;
        entriesOf.erase(found);
        frontRun.erase(std::remove_if(frontRun.begin(), frontRun.end(),
                                      [&](const Pushed& pushed) { return pushed.timer == timer; }),
                       frontRun.end());
        if (!walked.empty()) {
            walked.erase(std::remove_if(walked.begin(), walked.end(),
                                        [&](const auto& entry) { return entry.get() == timer; }),
                         walked.end());
            return;
        }
        // Its entry stands at its due time, unless the due times kept are stale.
        const auto guess = byDue.find(timer->GetExpire());
        if (guess != byDue.end()) {
            entries -= RemoveFrom(guess, timer, entries);
        }
        for (auto bucket = byDue.begin(); entries > 0 && bucket != byDue.end();) {
            const auto next = std::next(bucket);
            entries -= RemoveFrom(bucket, timer, entries);
            bucket = next;
        }
    }

    void Clear() {
        byDue.clear();
        lastPushedTo = byDue.end();
        walked.clear();
        entriesOf.clear();
        frontRun.clear();
        timersStandingTwice = 0;
        updatesWaiting = false;
        dueTimesStale = false;
    }

    void NoteUpdate() { updatesWaiting = true; }

    // Timers whose callbacks run now, on the manager's thread or on a thread that Stop told
    // to leave; a timer stands here once per running callback.
    bool InCallback(const Timer* timer) const {
        return std::find(inCallback.begin(), inCallback.end(), timer) != inCallback.end();
    }
    void BeginCallback(const Timer* timer) { inCallback.push_back(timer); }
    // Wakes the threads that hold a timer back until its callback has returned.
    template <class Condition>
    void EndCallback(const Timer* timer, Condition& wake) {
        inCallback.erase(std::find(inCallback.begin(), inCallback.end(), timer));
        if (heldBack != 0) {
            wake.notify_all();
        }
    }
    // Timers that are due but held back, over all threads.
    int heldBack = 0;

    // The clock reading of the latest pass, from which the wait after it is measured.
    unsigned long long passTime = 0;
    // How far past passTime's whole millisecond the reading was: a wait measured from the
    // pass ends at the start of the due millisecond instead of that much into it.
    std::chrono::nanoseconds passFraction{0};

private:
    // The next timer of a bucket is due with the one handed out: fetching its object while
    // that one's callback runs spares the next pass a wait for memory, which in a bucket of
    // many timers adds up to lateness for the last ones.
    static void PrefetchTimer(const Timer* timer) {
#if defined(__GNUC__)
        const char* object = reinterpret_cast<const char*>(timer);
        for (std::size_t line = 0; line < sizeof(OvTimer); line += 64) {
            __builtin_prefetch(object + line);
        }
#else
        (void)timer;
#endif
    }

    // The entries due at one time; the back fires first.
    using Bucket = std::vector<std::shared_ptr<Timer>>;
    using Buckets = std::map<unsigned long long, Bucket>;
    // An entry pushed since the latest pass, in the order of pushes.
    struct Pushed {
        unsigned long long due;
        const Timer* timer;
        unsigned long long push;
    };

    // The start of a pass: takes waiting updates over and puts every entry in its place.
    void Settle() {
        // The relaxed peek spares the exchange on most passes; a direct write that it does not
        // see yet is taken over by a later pass, as one made just after this pass would be.
        if (updatesWaiting || !walked.empty() ||
            (timerFieldsWrittenDirectly.load(std::memory_order_relaxed) &&
             timerFieldsWrittenDirectly.exchange(false))) {
            Resort();
        }
        frontRun.clear();
    }

    bool DueTimesMayBeStale() const {
        return dueTimesStale || timerFieldsWrittenDirectly.load(std::memory_order_relaxed);
    }

    // The bucket of `due`, made if missing. Most pushes go where the previous one went.
    Bucket& BucketAt(unsigned long long due) {
        if (lastPushedTo == byDue.end() || lastPushedTo->first != due) {
            lastPushedTo = byDue.empty() || byDue.rbegin()->first < due
                              ? byDue.emplace_hint(byDue.end(), due, Bucket())
                              : byDue.try_emplace(due).first;
        }
        return lastPushedTo->second;
    }

    void EraseIfEmpty(Buckets::iterator bucket) {
        if (bucket->second.empty()) {
            if (bucket == lastPushedTo) {
                lastPushedTo = byDue.end();
            }
            byDue.erase(bucket);
        }
    }

    // Removes up to `most` entries of `timer` from `bucket`; returns how many it removed.
    int RemoveFrom(Buckets::iterator bucket, const Timer* timer, int most) {
        Bucket& entries = bucket->second;
        int removed = 0;
        for (auto entry = entries.end(); removed < most && entry != entries.begin();) {
            if ((--entry)->get() == timer) {
                entry = entries.erase(entry);
                ++removed;
            }
        }
        EraseIfEmpty(bucket);
        return removed;
    }

    // The first entry, a repeating timer, fired and is due again at `due`.
    void RescheduleFirst(Buckets::iterator first, unsigned long long due) {
        std::shared_ptr<Timer> timer = std::move(first->second.back());
        first->second.pop_back();
        EraseIfEmpty(first);
        if (timersStandingTwice != 0 && entriesOf[timer.get()] > 1) {
            // Its other entry keeps the old due time: the next pass sorts by the new one.
            dueTimesStale = true;
            updatesWaiting = true;
        }
        const Timer* fired = timer.get();
        BucketAt(due).push_back(std::move(timer));
        frontRun.assign(1, {due, fired, ++pushes});
    }

    // The first entry, a one-shot timer, fired and leaves.
    void RemoveFirst(Buckets::iterator first) {
        const auto count = entriesOf.find(first->second.back().get());
        if (--count->second == 0) {
            entriesOf.erase(count);
        } else if (count->second == 1) {
            --timersStandingTwice;
        }
        first->second.pop_back();
        EraseIfEmpty(first);
    }

    unsigned long long FrontRunLastDue() const {
        unsigned long long last = 0;
        for (const Pushed& pushed : frontRun) {
            last = std::max(last, pushed.due);
        }
        return last;
    }

    // The whole list in list order, taken out of the buckets: the fired timer and the
    // newcomers walked in before it, then every bucket from its back.
    std::vector<std::shared_ptr<Timer>> TakeListOrder() {
        std::vector<std::shared_ptr<Timer>> order;
        order.reserve(entriesOf.size() + static_cast<size_t>(timersStandingTwice));
        std::sort(frontRun.begin(), frontRun.end(), [](const Pushed& a, const Pushed& b) {
            return a.due != b.due ? a.due < b.due : a.push > b.push;
        });
        for (const Pushed& pushed : frontRun) {
            Bucket& bucket = byDue.find(pushed.due)->second;
            const auto entry = std::find_if(bucket.rbegin(), bucket.rend(), [&](const auto& e) {
                return e.get() == pushed.timer;
            });
            order.push_back(std::move(*entry));
            bucket.erase(std::next(entry).base());
        }
        frontRun.clear();
        for (auto& bucket : byDue) {
            std::move(bucket.second.rbegin(), bucket.second.rend(), std::back_inserter(order));
        }
        byDue.clear();
        lastPushedTo = byDue.end();
        return order;
    }

    // A newcomer inserted as the plain list's walk does it, in an explicit copy of the list
    // order that the next pass sorts.
    void WalkIn(const std::shared_ptr<Timer>& timer) {
        if (walked.empty()) {
            walked = TakeListOrder();
        }
        const unsigned long long due = timer->GetExpire();
        walked.insert(std::find_if(walked.begin(), walked.end(),
                                   [&](const auto& entry) { return entry->GetExpire() >= due; }),
                      timer);
        updatesWaiting = true;
    }

    // The full pass: every entry in list order takes its waiting update over, then a stable
    // sort by due time rebuilds the buckets.
    void Resort() {
        std::vector<std::shared_ptr<Timer>> order =
            walked.empty() ? TakeListOrder() : std::move(walked);
        walked.clear();
        std::vector<std::pair<unsigned long long, std::shared_ptr<Timer>>> sorted;
        sorted.reserve(order.size());
        for (auto& timer : order) {
            const unsigned long long waiting = timer->GetUpdateExpire();
            if (waiting != 0) {
                timer->StoreExpire(waiting);
                timer->StoreUpdateExpire(0);
            }
            sorted.emplace_back(timer->GetExpire(), std::move(timer));
        }
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        // From the last entry back, so that the first of each due time ends at its bucket's back.
        for (auto entry = sorted.rbegin(); entry != sorted.rend(); ++entry) {
            BucketAt(entry->first).push_back(std::move(entry->second));
        }
        updatesWaiting = false;
        dueTimesStale = false;
    }

    Buckets byDue;  // never holds an empty bucket
    // The bucket that the latest push went to, or byDue.end().
    Buckets::iterator lastPushedTo = byDue.end();
    // Not empty only between a walk-in and the next pass: the whole list, in list order,
    // while byDue is empty.
    std::vector<std::shared_ptr<Timer>> walked;
    // How many entries each timer has; more than one only if SetStartState was misused.
    std::unordered_map<const Timer*, int> entriesOf;
    int timersStandingTwice = 0;
    // Between a pass that fired a repeating timer and the next pass: that timer and the
    // newcomers inserted before it, which stand ahead of the rest whatever their due times.
    std::vector<Pushed> frontRun;
    unsigned long long pushes = 0;
    bool updatesWaiting = false;
    // Some entry may keep a due time its timer no longer has.
    bool dueTimesStale = false;
    std::vector<const Timer*> inCallback;
};

}  // namespace detail

// ---------------------------------------------------------------------------------------------
// Timer and OvTimer

Timer::Timer(unsigned long long timeout, bool loop)
    : timeout(timeout), loop(loop), expire(0), updateExpire(0), startState(false) {}

Timer::~Timer() = default;

void Timer::Start() {
    TimerManager::GetInstance()->AddTimer(shared_from_this());
}

void Timer::Stop() {
    TimerManager::GetInstance()->DeleteTimer(shared_from_this());
}

void Timer::Update() {
    TimerManager::GetInstance()->UpdateTimer(shared_from_this());
}

void Timer::Restart() {
    Stop();
    Start();
}

unsigned long long Timer::GetTimeout() const {
    return timeout;
}

bool Timer::GetLoop() const {
    return loop;
}

unsigned long long Timer::GetExpire() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return expire;
}

void Timer::SetExpire(unsigned long long value) {
    StoreExpire(value);
    timerFieldsWrittenDirectly.store(true);
}

unsigned long long Timer::GetUpdateExpire() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return updateExpire;
}

void Timer::SetUpdateExpire(unsigned long long value) {
    StoreUpdateExpire(value);
    timerFieldsWrittenDirectly.store(true);
}

bool Timer::IsStart() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return startState;
}

void Timer::SetStartState(bool started) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    startState = started;
}

OvTimer::OvTimer(unsigned long long timeout, bool loop) : Timer(timeout, loop) {}

OvTimer::~OvTimer() = default;

void OvTimer::Init(std::function<void()> callback) {
    this->callback = std::move(callback);
}

void OvTimer::OnTimer() {
    try {
        callback();
    } catch (const std::exception&) {
        ORVIK_LOG(LOG_LEVEL_ERROR, "exception");
    }
}

// ---------------------------------------------------------------------------------------------
// TimerManager

TimerManager* TimerManager::GetInstance() {
    // Never destroyed: a detached thread may still be inside a callback while the process
    // exits. Where the destructor would run, the manager is stopped instead.
    static detail::NeverDestroyed<TimerManager> instance;
    static detail::UnloadHook teardown([] { instance->Stop(); });
    return instance.get();
}

TimerManager::TimerManager() : timers(new detail::TimerList()), running(false) {}

TimerManager::~TimerManager() {
    Stop();
}

void TimerManager::Start() {
    // Without the lock first: a running manager needs nothing, and a false answer is tested
    // again under the lock.
    if (running.load()) {
        return;
    }
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (running.load()) {
        return;
    }
    running.store(true);
    auto launched = std::make_shared<std::thread>([this] { Run(); });
    loopThread.store(launched->get_id());
    launched->detach();
    thread = std::move(launched);
}

void TimerManager::Stop() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (running.load()) {
        running.store(false);
        timers->Clear();
        wake.notify_all();
    }
}

inline long long TimerManager::GetTimeoutValue() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (timers->Empty()) {
        return 0;
    }
    const std::shared_ptr<Timer>& first = timers->First();
    if (!first) {
        // Not ORVIK_LOG: its function-local name constant would be a unique symbol of this
        // hidden inline member, and publish the member's name after all.
        Log::GetInstance().DoLog(LOG_LEVEL_ERROR, __FILE__, __LINE__,
                                 "orvik::TimerManager::GetTimeoutValue", "timer is null");
        return 0;
    }
    // Measured from the pass that found nothing due, not from a fresh reading: under load the
    // clock often reaches the first due time between the two, and a delay of exactly 0 would
    // then sleep for kDueNowWaitMs instead of firing.
    return static_cast<long long>(first->GetExpire() - timers->passTime);
}

void TimerManager::Run() {
    // The thread's waits end at due times; a wake-up the system lets run late is lateness.
    platform::WakeOnTimeForThisThread();
    const std::thread::id self = std::this_thread::get_id();
    std::shared_ptr<Timer> fired;  // its callback has returned, it is still marked
    // Due, but their callbacks still run on a thread that Stop told to leave: they fire once
    // those callbacks have returned, while other timers fire on time.
    std::vector<std::shared_ptr<Timer>> heldBack;
    for (;;) {
        std::shared_ptr<Timer> timer;
        {
            std::unique_lock<std::recursive_mutex> lock(mutex);
            if (fired) {
                timers->EndCallback(fired.get(), wake);
                fired.reset();
            }
            if (!running.load() || loopThread.load() != self) {
                timers->heldBack -= static_cast<int>(heldBack.size());
                break;
            }
            const auto released = std::find_if(heldBack.begin(), heldBack.end(), [&](auto& t) {
                return !timers->InCallback(t.get());
            });
            if (released != heldBack.end()) {
                timer = std::move(*released);
                heldBack.erase(released);
                --timers->heldBack;
            } else {
                timer = timers->TakeDue();  // GetTimeoutTimer, under the lock already held
                if (timer && timers->InCallback(timer.get())) {
                    heldBack.push_back(std::move(timer));
                    ++timers->heldBack;
                    continue;
                }
            }
            if (!timer) {
                if (timers->Empty() && heldBack.empty()) {
                    running.store(false);
                    break;
                }
                long long delay = timers->Empty() ? kLongestWaitMs : GetTimeoutValue();
                if (delay == 0) {
                    delay = kDueNowWaitMs;
                }
                // A negative delay (a due time already past) does not wait at all.
                platform::WaitFor(wake, lock,
                                  std::chrono::milliseconds(std::min(delay, kLongestWaitMs)) -
                                      timers->passFraction);
                continue;
            }
            timers->BeginCallback(timer.get());
        }
        try {
            timer->OnTimer();
        } catch (const std::exception& error) {
            ORVIK_LOG(LOG_LEVEL_ERROR, "timer callback threw: %s", error.what());
        } catch (...) {
            ORVIK_LOG(LOG_LEVEL_ERROR, "timer callback threw an exception of unknown type");
        }
        fired = std::move(timer);
    }
}

void TimerManager::AddTimer(std::shared_ptr<Timer> timer) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (timer && timer->GetTimeout() != 0 && !timer->IsStart()) {
        timer->SetStartState(true);
        const unsigned long long due = timer->GetTimeout() + TimeUtils::GetTimeMills();
        timer->StoreExpire(due);
        timers->Insert(timer, due);
        wake.notify_all();
    }
    if (!timers->Empty()) {
        Start();
    }
}

void TimerManager::DeleteTimer(std::shared_ptr<Timer> timer) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (timer && timer->IsStart()) {
        timer->SetStartState(false);
        timers->RemoveAll(timer.get());
    }
    wake.notify_all();
}

void TimerManager::UpdateTimer(std::shared_ptr<Timer> timer) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (timer && timer->IsStart()) {
        timer->StoreUpdateExpire(timer->GetTimeout() + TimeUtils::GetTimeMills());
        timers->NoteUpdate();
    }
}

std::shared_ptr<Timer> TimerManager::GetTimeoutTimer() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return timers->TakeDue();
}

}  // namespace orvik
