// What a run of a program costs, as measured_run writes it and the measurements read it.
#pragma once

/// The descriptor that measured_run writes to.
inline constexpr int kCostDescriptor = 3;

struct Cost
{
    int status = -1;      ///< as from wait4(); -1 when it did not start
    double seconds = 0;   ///< of the monotonic clock, from before the start to after the end
    double processor = 0; ///< seconds of the processor, of the program and the children it waited for
    long kilobytes = 0;   ///< its largest resident memory, in units of 1024 bytes
};
