#pragma once

#include <string>
#include <utility>

/// An open file descriptor, closed when its holder dies. Move-only.
class OpenFile {
public:
    OpenFile() = default;
    explicit OpenFile(int number) : number(number) {}
    OpenFile(OpenFile&& other) noexcept : number(std::exchange(other.number, -1)) {}
    OpenFile& operator=(OpenFile&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    /// Borrowed for the length of a call; negative if there is none.
    int get() const { return number; }
    /// Gives up the descriptor, which somebody else closes.
    void release() { number = -1; }
    bool isOpen() const { return number >= 0; }

    /// Opens a name in an open folder for reading. Follows no symbolic link, and does not wait for another
    /// process if the name is a pipe and no file. If the result is not open, `errno` says why.
    static OpenFile at(int folder, const std::string& name, int flags = 0);

private:
    int number = -1;
};
