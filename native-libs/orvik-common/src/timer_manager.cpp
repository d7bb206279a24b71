#include "common/timer_manager.h"

#include <algorithm>
#include <chrono>
#include <exception>
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
// The order is that of a list sorted by due time on every pass with a stable sort, where a
// newcomer is inserted before the first entry due at the same time or later, a repeating
// timer that fired stays at the front with its new due time until the next pass, and
// updates are taken over just before the sort. Instead of sorting, entries are kept in a map
// by (due time, rank): a newcomer and a timer that fired get a rank below every other, which
// puts them first among equal due times as the insertion and the stable sort do. The only
// case where the list order that the sort starts from matters beyond that is a pass that
// takes updates over (or follows a direct call of Timer's published setters); that pass
// rebuilds the list order (the entries that stood before the fired timer, then the rest),
// re-reads every due time and sorts it as a whole. So a pass costs a map lookup, and a
// firing one re-insertion, unless an update waits.
//
// Not thread-safe: the manager holds its mutex around every call.
class TimerList {
public:
    bool Empty() const { return byDue.empty(); }
    const std::shared_ptr<Timer>& First() const { return byDue.begin()->second; }
    unsigned long long FirstDue() const { return byDue.begin()->first.due; }

    void Insert(const std::shared_ptr<Timer>& timer, unsigned long long due) {
        const Slot* slot = &byDue.emplace(Slot{due, --lowestRank}, timer).first->first;
        slotsOf.emplace(timer.get(), slot);
        // Inserted by a walk from the front, it would stand before the fired timer.
        if (!frontRun.empty() && due <= FrontRunLastDue()) {
            frontRun.push_back(slot);
        }
        // An Update followed by Stop left a due time waiting for this timer's next pass.
        if (timer->GetUpdateExpire() != 0) {
            updatesWaiting = true;
        }
    }

    void RemoveAll(const Timer* timer) {
        rescheduled = byDue.end();
        const auto range = slotsOf.equal_range(timer);
        for (auto it = range.first; it != range.second; ++it) {
            const Slot slot = *it->second;
            frontRun.erase(std::remove(frontRun.begin(), frontRun.end(), it->second),
                           frontRun.end());
            byDue.erase(slot);
        }
        slotsOf.erase(range.first, range.second);
    }

    void Clear() {
        rescheduled = byDue.end();
        byDue.clear();
        slotsOf.clear();
        frontRun.clear();
        updatesWaiting = false;
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

    // The start of a pass: takes waiting updates over and puts every entry in its place.
    void Settle() {
        // The relaxed peek spares the exchange on most passes; a direct write that it does not
        // see yet is taken over by a later pass, as one made just after this pass would be.
        if (updatesWaiting || (timerFieldsWrittenDirectly.load(std::memory_order_relaxed) &&
                               timerFieldsWrittenDirectly.exchange(false))) {
            Resort();
        }
        frontRun.clear();
    }

    // The first entry, a repeating timer, fired and is due again at `due`.
    void RescheduleFirst(unsigned long long due) {
        auto node = byDue.extract(Unhinted(byDue.begin()));
        node.key() = Slot{due, --lowestRank};
        // Ranking first among the entries due at `due`, the entry goes where the previous one
        // rescheduled to that time went, right before it; or, often, after every entry. A
        // right hint spares the search through the whole map; a wrong one costs nothing more.
        const auto hint =
            rescheduled != byDue.end() && rescheduled->first.due == due ? rescheduled : byDue.end();
        rescheduled = byDue.insert(hint, std::move(node));
        frontRun.assign(1, &rescheduled->first);
    }

    // The first entry, a one-shot timer, fired and leaves.
    void RemoveFirst() {
        const auto first = Unhinted(byDue.begin());
        const auto range = slotsOf.equal_range(first->second.get());
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second == &first->first) {
                slotsOf.erase(it);
                break;
            }
        }
        byDue.erase(first);
    }

private:
    struct Slot {
        unsigned long long due;
        long long rank;  // among equal due times, the lower rank fires first
        bool operator<(const Slot& other) const {
            return due != other.due ? due < other.due : rank < other.rank;
        }
    };
    using Entries = std::map<Slot, std::shared_ptr<Timer>>;

    // `entry`, about to leave the map, is no longer the hint for the next rescheduling.
    Entries::iterator Unhinted(Entries::iterator entry) {
        if (entry == rescheduled) {
            rescheduled = byDue.end();
        }
        return entry;
    }

    unsigned long long FrontRunLastDue() const {
        unsigned long long last = 0;
        for (const Slot* slot : frontRun) {
            last = std::max(last, slot->due);
        }
        return last;
    }

    // The full pass: every entry in list order takes its waiting update over, then a stable
    // sort by due time. Nodes are moved, not copied, and the index keeps pointing at them.
    void Resort() {
        rescheduled = byDue.end();
        std::vector<Entries::node_type> nodes;
        nodes.reserve(byDue.size());
        std::sort(frontRun.begin(), frontRun.end(),
                  [](const Slot* a, const Slot* b) { return *a < *b; });
        for (const Slot* slot : frontRun) {
            nodes.push_back(byDue.extract(*slot));
        }
        while (!byDue.empty()) {
            nodes.push_back(byDue.extract(byDue.begin()));
        }
        for (auto& node : nodes) {
            Timer& timer = *node.mapped();
            const unsigned long long waiting = timer.GetUpdateExpire();
            if (waiting != 0) {
                timer.StoreExpire(waiting);
                timer.StoreUpdateExpire(0);
            }
            node.key().due = timer.GetExpire();
        }
        std::stable_sort(nodes.begin(), nodes.end(),
                         [](const auto& a, const auto& b) { return a.key().due < b.key().due; });
        lowestRank -= static_cast<long long>(nodes.size());
        long long rank = lowestRank;
        for (auto& node : nodes) {
            node.key().rank = rank++;
            byDue.insert(byDue.end(), std::move(node));
        }
        updatesWaiting = false;
    }

    Entries byDue;
    // The entry that the latest RescheduleFirst inserted, or byDue.end().
    Entries::iterator rescheduled = byDue.end();
    // Where each timer's entries are; a timer stands once unless SetStartState was misused.
    std::unordered_multimap<const Timer*, const Slot*> slotsOf;
    // Between a pass that fired a repeating timer and the next pass: that timer and the
    // newcomers inserted before it, which stand ahead of the rest whatever their due times.
    std::vector<const Slot*> frontRun;
    // Ranks count down, so that every newcomer ranks below all entries before it.
    long long lowestRank = 0;
    bool updatesWaiting = false;
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
                timer = GetTimeoutTimer();
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
    const auto sinceEpoch = platform::WallClockNow().time_since_epoch();
    const auto wholeMs = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch);
    // The reading TimeUtils::GetTimeMills would give, and what it cuts off.
    const auto now = static_cast<unsigned long long>(wholeMs.count());
    timers->passTime = now;
    timers->passFraction = sinceEpoch - wholeMs;
    if (timers->Empty()) {
        return nullptr;
    }
    timers->Settle();
    std::shared_ptr<Timer> first = timers->First();
    if (!first) {
        ORVIK_LOG(LOG_LEVEL_ERROR, "empty item");
        return nullptr;
    }
    if (timers->FirstDue() > now) {
        return nullptr;
    }
    if (first->GetLoop()) {
        const unsigned long long due = now + first->GetTimeout();
        first->StoreExpire(due);
        timers->RescheduleFirst(due);
    } else {
        first->SetStartState(false);
        timers->RemoveFirst();
    }
    return first;
}

}  // namespace orvik
