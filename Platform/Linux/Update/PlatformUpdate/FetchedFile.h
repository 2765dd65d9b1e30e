#pragma once

#include "Base/Bytes.h"
#include "Base/FileDescriptor.h"

#include <filesystem>

/// A new file that is written from beginning to end.
class FetchedFile {
public:
    /// @throws FetchError  it is there already, or can't be made
    explicit FetchedFile(const std::filesystem::path& path);

    /// @throws FetchError  for a full disk, for example
    void write(ByteView bytes);
    /// Closes the file. @throws FetchError  not everything could be written
    void close();

private:
    FileDescriptor file;
};
