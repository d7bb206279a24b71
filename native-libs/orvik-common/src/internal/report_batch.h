// Lets a report engine turn a run of records into one write.
//
// Not published. While the reporter thread delivers a record and more records are already
// queued behind it, an engine may hold its output back instead of writing it, provided it
// registers that output here. The reporter writes every registered output as soon as its queue
// goes idle (after the last queued record, even when that record went elsewhere), before a
// Flush reports success, and when it is torn down at unload. Everywhere else — another thread,
// the last record of a run — an engine writes at once.
#ifndef ORVIK_COMMON_REPORT_BATCH_H
#define ORVIK_COMMON_REPORT_BATCH_H

#include <memory>

namespace orvik::detail {

// Output an engine holds back. WriteHeld writes whatever is held and may be called from any
// thread; the registry holds only a weak reference, so an owner that goes away must write
// its held output itself first.
class HeldOutput {
public:
    virtual void WriteHeld() = 0;

protected:
    ~HeldOutput() = default;
};

// True on the reporter thread, inside an engine's Report, while at least one more record is
// queued behind the one being delivered.
bool ReportsQueuedBehind();

// Registers `output` for the next WriteHeldOutputs. May throw std::bad_alloc; the caller then
// writes at once instead of holding.
void WriteWhenIdle(std::weak_ptr<HeldOutput> output);

// Writes every registered output and forgets it.
void WriteHeldOutputs();

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_REPORT_BATCH_H
