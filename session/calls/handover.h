#ifndef SORVANIC_SESSION_CALLS_HANDOVER_H
#define SORVANIC_SESSION_CALLS_HANDOVER_H

// A caller that has received a descriptor goes on a moment before the supervisor closes its own copy. Until
// then the file stays open even if the caller closes it: its locks and leases stay, and a program file counts
// as open for writing. Calls that depend on this wait for that moment to pass.

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

/// Returns when all earlier ones are over. Any thread; waits for microseconds.
void wait_for_handovers();

} // namespace session

#endif
