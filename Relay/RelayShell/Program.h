#pragma once

#include <string>
#include <vector>

/// What `vimble-relay` does with its command line. @return the exit status
int runProgram(const std::vector<std::string>& words);
