#pragma once

#include <string>
#include <vector>

/// Runs this program again, as a process of its own, to measure what only a whole process has, such as its start.
namespace ChildProcess {

/// Runs this program with those arguments to its end, and drops what it writes.
/// @return the time from the fork to the end, in seconds
/// @throws std::runtime_error  it did not end with status 0
double timeOf(const std::vector<std::string>& arguments);

/// Runs it likewise. @return the number that it has written to standard output
double numberFrom(const std::vector<std::string>& arguments);

}  // namespace ChildProcess
