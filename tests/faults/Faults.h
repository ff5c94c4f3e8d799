#pragma once
// The switch of a library that stands before the C library and, when told to, refuses memory or makes a
// call fail. Counts are of the whole process, whatever thread calls.

/// What is failed, or bent.
enum FaultKind {
    FaultNothing,
    FaultMemory,     ///< malloc, calloc, realloc and those who use them: no memory
    FaultCall,       ///< calls to the system and to stdio: the error that each of them has for bad days
    FaultInterrupt,  ///< every second call that can wait is interrupted by a signal (EINTR)
    FaultTrickle,    ///< reads, writes, sends and receives move one byte at a time
    FaultAhead,      ///< looks at the wall clock: it was set ahead by an hour
    FaultBack,       ///< and back by an hour
    FaultDisk,       ///< regular files take no more bytes, all together, than faultsArm() said as @p first
};

/// From now on the @p first call of @p kind fails (counted from 1; 0: none does), and with @p onwards every
/// one after it. Interrupt and Trickle bend all calls from the first on. Ahead and Back do not touch the
/// steady clock.
extern "C" void faultsArm(int kind, long first, bool onwards);

/// No more failures. Gives how many calls of the kind there were since faultsArm().
extern "C" long faultsDisarm();

/// The name of the call that failed last since faultsArm(); "" when none did.
extern "C" char const* faultsLast();

/// Spares the calling thread: what it calls neither fails nor counts. For what a test itself has to do.
extern "C" void faultsSpare(bool spared);

/// Allocations that nobody freed yet.
extern "C" long faultsLiveAllocations();
