#include "signin/core_dump_guard.h"

#ifdef __linux__

#include <sys/prctl.h>

// A limit on the size of core files would not do: it does not hold where cores are piped to a collector, and
// every program started meanwhile (the browser) would keep it.

CoreDumpGuard::CoreDumpGuard()
    : m_before(::prctl(PR_GET_DUMPABLE))
{
    ::prctl(PR_SET_DUMPABLE, 0);
}

CoreDumpGuard::~CoreDumpGuard()
{
    if (m_before == 1) // the one other value that a process may set
        ::prctl(PR_SET_DUMPABLE, 1);
}

#else

CoreDumpGuard::CoreDumpGuard()
{
    ::getrlimit(RLIMIT_CORE, &m_before);
    rlimit none = m_before;
    none.rlim_cur = 0;
    ::setrlimit(RLIMIT_CORE, &none);
}

CoreDumpGuard::~CoreDumpGuard()
{
    ::setrlimit(RLIMIT_CORE, &m_before);
}

#endif
