#pragma once

#include <string>
#include <utility>

/// An open file of the kernel's, closed with its holder. Move-only.
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

    /// For the length of a call; negative if there is none.
    int get() const { return number; }
    /// Leaves the closing to somebody else.
    void release() { number = -1; }
    bool isOpen() const { return number >= 0; }

    /// A name in an open folder, for reading; not through a symbolic link, and without waiting for
    /// anybody if it is no file after all. Not open: `errno` says why.
    static OpenFile at(int folder, const std::string& name, int flags = 0);

private:
    int number = -1;
};
