// No image of this process's memory while it holds a secret.
#pragma once

#ifndef __linux__
#include <sys/resource.h>
#endif

/// While one lives, a crash writes no core dump and (on Linux) no other process of the user can look into
/// this one's memory. The former state comes back at the end. Children started meanwhile are not affected on
/// Linux; elsewhere they inherit the limit. Main thread only; they nest.
class CoreDumpGuard
{
public:
    CoreDumpGuard();
    ~CoreDumpGuard();
    CoreDumpGuard(const CoreDumpGuard &) = delete;
    CoreDumpGuard &operator=(const CoreDumpGuard &) = delete;

private:
#ifdef __linux__
    int m_before;
#else
    rlimit m_before = {};
#endif
};
