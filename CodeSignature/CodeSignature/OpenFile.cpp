#include "CodeSignature/OpenFile.h"

#include <fcntl.h>
#include <unistd.h>

OpenFile::~OpenFile() {
    if (number >= 0) ::close(number);
}

OpenFile OpenFile::at(int folder, const std::string& name, int flags) {
    return OpenFile(::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | flags));
}
