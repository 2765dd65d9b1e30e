#pragma once

#include <QByteArray>
#include <QString>

#include <string>
#include <string_view>

/// The one pair of functions in which the engine's text meets Qt's: UTF-8 on one side, UTF-16 on the other.
///
/// What is not valid UTF-8 becomes U+FFFD on the way in.
inline QString toQt(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

inline std::string fromQt(const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    return {utf8.constData(), static_cast<std::size_t>(utf8.size())};
}
