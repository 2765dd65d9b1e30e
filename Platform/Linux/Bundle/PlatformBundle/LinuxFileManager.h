#pragma once

#include "UpdateKit/FileManager.h"

/// Moves by rename, and across volumes by a copy on the destination's volume that is then renamed.
///
/// The copy lies beside the destination as ".NAME.incoming". One that a killed process has left is removed when
/// the next is made, so only one process at a time may move to one destination.
class LinuxFileManager : public FileManager {
public:
    bool exists(const Path& path) override;
    Path prepareMove(const Path& source, const Path& destination) override;
    void move(const Path& source, const Path& destination) override;
    void remove(const Path& path) override;
};
