#pragma once

#include <string>
#include <vector>

/// This program again, as another process: for what can only be measured of a whole one.
namespace ChildProcess {

/// Runs it with those arguments to its end.
/// @return the time from the fork to the end, in seconds; nothing of what it writes is kept
/// @throws std::runtime_error  it did not end with status 0
double timeOf(const std::vector<std::string>& arguments);

/// Runs it likewise. @return the number that it wrote to standard output
double numberFrom(const std::vector<std::string>& arguments);

}  // namespace ChildProcess
