// An answer also when the library falls over.
#pragma once

class Answer;

/// While it lives, a crash ends the program with the answer that the phone sent something unintelligible, and
/// with a line of diagnostics. The library believes what it reads from the service's pairing records; a
/// damaged one makes it reach for memory that is not there. One at a time, on the main thread.
class CrashGuard
{
public:
    /// The answer outlives the guard.
    explicit CrashGuard(Answer &answer);
    ~CrashGuard();
    CrashGuard(const CrashGuard &) = delete;
    CrashGuard &operator=(const CrashGuard &) = delete;
};
