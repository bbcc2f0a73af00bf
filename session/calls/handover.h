#ifndef SORVANIC_SESSION_CALLS_HANDOVER_H
#define SORVANIC_SESSION_CALLS_HANDOVER_H

// A caller that has got a descriptor goes on a moment before the supervisor has closed its own copy. Until
// then the open file outlives the caller's close: its locks and leases stand, and its program file is being
// written to. Whoever asks for these waits out that moment.

namespace session {

/// From before the caller gets its descriptor until the supervisor's copies are closed. Any thread.
class handover {
public:
    handover();
    ~handover();
    handover(const handover&) = delete;
    handover& operator=(const handover&) = delete;

private:
    unsigned long number_;
};

/// Returns when all that have begun before are over. Any thread; waits for microseconds.
void wait_for_handovers();

} // namespace session

#endif
