#pragma once

#include "Base/Bytes.h"

#include <QIODevice>

/// Takes what is written to it into memory, and wipes every byte of it: when it grows, and when it dies.
///
/// For what holds a secret on its way. QBuffer leaves a copy behind each time it grows.
class WipedBuffer : public QIODevice {
public:
    /// Open for writing from the start.
    WipedBuffer();
    ~WipedBuffer() override;

    bool isSequential() const override { return true; }

    ByteView contents() const { return bytes; }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override;

private:
    Bytes bytes;
};
