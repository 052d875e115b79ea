#ifndef BENCHMARKS_LOADING_H
#define BENCHMARKS_LOADING_H

#include <string>
#include <vector>

/// What it took to load libraries.
struct Loading
{
    double nanoseconds;      ///< of the dlopen calls
    long privateDirty;       ///< bytes of private dirty memory that the process has more than before
    long privateDirtyOfLast; ///< those of them that the last library's own file is mapped to
};

/// Loads @p libraries in this order in a new process. Throws std::runtime_error if one does not load.
Loading loadInNewProcess(const std::vector<std::string>& libraries);

/// Nanoseconds from the first dlopen call in such a process to the process's orderly end.
double loadAndEndInNewProcess(const std::vector<std::string>& libraries);

#endif
