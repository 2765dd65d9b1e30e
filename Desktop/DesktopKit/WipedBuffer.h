#pragma once

#include "Base/Bytes.h"

#include <QIODevice>

/// Keeps what is written to it in memory, and wipes every byte of it: when it grows, and when it dies.
///
/// Use it for data that contains a secret: QBuffer leaves a copy behind each time it grows.
class WipedBuffer : public QIODevice {
public:
    /// Opens the buffer for writing.
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
