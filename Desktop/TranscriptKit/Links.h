#pragma once

#include <vector>

#include <QString>
#include <QUrl>

/// Links in the words of others: http and https only, nothing else is ever opened.
namespace Links {

struct Link {
    qsizetype start = 0;  // in UTF-16 units
    qsizetype length = 0;
    QUrl url;

    bool operator==(const Link&) const = default;
};

/// The links of a text in order, as a reader would take them: a full stop, comma or closing bracket
/// that belongs to the sentence is left out. "www." with a host of three parts or more counts as https.
/// Linear in the text's length; at most 1000 links, each of at most 4096 units.
std::vector<Link> find(const QString& text);

/// Whether the program opens such a URL at all: http or https, with a host, without a user or password.
bool mayOpen(const QUrl& url);

}  // namespace Links
