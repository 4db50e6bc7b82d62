// Keeps trace lines and forks apart.
#ifndef REGLIB_TRACE_GATE_H
#define REGLIB_TRACE_GATE_H

namespace VQRegLib {

// A line asks the C library for the local time, and that takes a lock which a fork does not look
// after: a child that is made while a thread of its parent holds it waits for it for ever. So a fork
// waits until no other thread is at work on a line, and lines that come meanwhile wait for the fork.
// All waits end after a second: a program's own fork handlers may wait for a thread that waits here.
class CTraceGate {
public:
    // A thread is at work on a line while one of these lives.
    class CPass {
    public:
        CPass();
        ~CPass();
        CPass(const CPass&) = delete;
        CPass& operator=(const CPass&) = delete;
    };

    // What CPortable::AtFork takes.
    static void beforeFork();
    static void afterForkInParent();
    static void afterForkInChild();
};

}  // namespace VQRegLib

#endif  // REGLIB_TRACE_GATE_H
