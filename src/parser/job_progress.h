// Job progress reports of the printer: the chain of jobs it has started and not
// yet ended.
#pragma once

namespace langmon {

struct StatusVariable;

// One job started at the printer. The node owns its snapshot and the snapshot
// owns its Value.
struct JobInfoNode {
    StatusVariable* Snapshot;
    JobInfoNode* Next;
};

}  // namespace langmon
