#pragma once

#include <vector>

#include <QString>
#include <QUrl>

/// Finds links in the words of others: only http and https, since nothing else is ever opened.
namespace Links {

struct Link {
    qsizetype start = 0;  // in UTF-16 units
    qsizetype length = 0;
    QUrl url;

    bool operator==(const Link&) const = default;
};

/// The links of a text in order, with the ends that a reader would see: a full stop, comma or closing bracket
/// that belongs to the sentence is left out. A host of three parts or more that begins with "www." counts as
/// https. Linear in the text's length; finds at most 1000 links, each of at most 4096 UTF-16 units.
std::vector<Link> find(const QString& text);

/// Whether the program may open the URL: http or https, with a host, without a user or password.
bool mayOpen(const QUrl& url);

}  // namespace Links
