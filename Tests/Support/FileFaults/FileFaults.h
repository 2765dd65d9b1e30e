#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Watches this thread's system calls on files (open, openat, mkostemp, fstat, read, write, fchmod, fsync, close,
/// rename) for as long as it lives, and lets one of them fail. Removing a file never fails, and is not counted.
///
/// Sees the calls of our own code, and not those that the standard library makes. One at a time on a thread.
class FileFaults {
public:
    enum class Kind {
        none,
        failing,      // the call that was asked for ends with the error; a close closes all the same
        interrupted,  // every call of read and write is first interrupted by a signal
        piecemeal,    // every call of read and write takes one byte
        stuck,        // write takes nothing, and says so without an error
    };

    explicit FileFaults(Kind kind = Kind::none);
    /// @param failing  which call from now on, the first being 1
    FileFaults(int failing, int error);
    ~FileFaults();
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    /// The names of the calls so far.
    const std::vector<std::string_view>& calls() const { return _calls; }
    /// The name of the call that has failed, once it has.
    std::optional<std::string> failedCall() const {
        if (failing < 1 || _calls.size() < static_cast<std::size_t>(failing)) return std::nullopt;
        return std::string(_calls[static_cast<std::size_t>(failing) - 1]);
    }
    /// Whether a file was renamed, which puts it in its place.
    bool hasRenamed() const {
        const auto rename = std::find(_calls.begin(), _calls.end(), "rename");
        return rename != _calls.end() && rename - _calls.begin() != failing - 1;
    }

    /// For the functions that stand in place of the system's. @return 0, or the error with which this call is to end
    int enter(std::string_view call);
    Kind kind() const { return _kind; }
    bool interruptsNow() { return _kind == Kind::interrupted && (isInterrupted = !isInterrupted); }

private:
    const Kind _kind;
    const int failing = 0;
    const int error = 0;
    bool isInterrupted = false;
    std::vector<std::string_view> _calls;
};
