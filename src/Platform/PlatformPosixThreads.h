/// The pool's view of its own workers.
#pragma once

#include "Platform/Platform.h"

namespace rv {

/// For the length of a wait. A worker of the pool that waits does nothing: another is started in its place, so that
/// items may wait for items that are still in the queue. Other threads may wait as they like.
class WorkerAway {
public:
    WorkerAway() noexcept;
    ~WorkerAway();
    WorkerAway(const WorkerAway&) = delete;
    WorkerAway& operator=(const WorkerAway&) = delete;

private:
    struct Member* member_; // null where there is nothing to undo
};

} // namespace rv
