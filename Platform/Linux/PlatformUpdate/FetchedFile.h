#pragma once

#include "Base/Bytes.h"
#include "PlatformBundle/FileDescriptor.h"

#include <filesystem>

/// A new file that is written from beginning to end.
class FetchedFile {
public:
    /// @throws FetchError  it is there already, or can't be made
    explicit FetchedFile(const std::filesystem::path& path);

    /// @throws FetchError  such as for a full disk
    void write(ByteView bytes);
    /// Says whether all has been written. @throws FetchError
    void close();

private:
    FileDescriptor file;
};
