#pragma once

#include <QByteArray>
#include <QFile>
#include <QtEndian>

#include <vector>

/// One of the application's sounds, read from its file: 16 bit, mono, a plain header before the samples.
struct SoundFile {
    explicit SoundFile(const QString& name) {
        QFile file(QStringLiteral(":/vimble/sounds/%1.wav").arg(name));
        if (!file.open(QIODevice::ReadOnly)) return;
        header = file.read(headerSize);
        samples = fromBytes(file.readAll());
    }

    static std::vector<int> fromBytes(const QByteArray& bytes) {
        std::vector<int> samples;
        for (qsizetype at = 0; at + 1 < bytes.size(); at += 2)
            samples.push_back(qFromLittleEndian<qint16>(bytes.constData() + at));
        return samples;
    }

    static constexpr int headerSize = 44;
    static constexpr int rate = 48000;
    static constexpr double fullScale = 32768;

    QByteArray header;
    std::vector<int> samples;
};
