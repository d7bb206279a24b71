// The published instantiation of BlockingQueue: ThreadPool's task queue, and the queue that the
// stack's other libraries use through the library's exported members.
#include "common/blocking_queue.h"

namespace orvik {

template class BlockingQueue<std::function<void()>>;

}  // namespace orvik
