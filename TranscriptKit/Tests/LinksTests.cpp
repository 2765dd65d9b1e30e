#include "TranscriptKit/Links.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace {

/// The parts of the text that are links.
QStringList found(const QString& text) {
    QStringList links;
    for (const Links::Link& link : Links::find(text)) links.append(text.mid(link.start, link.length));
    return links;
}

QString onlyUrl(const QString& text) {
    const auto links = Links::find(text);
    return links.size() == 1 ? QString::fromLatin1(links.front().url.toEncoded()) : QStringLiteral("not one");
}

TEST(LinksTest, AnAddressInASentenceIsFoundWhereItStands) {
    const auto links = Links::find(u"See http://example.org/a?b=c&d#e now"_qs);
    ASSERT_EQ(links.size(), 1u);
    EXPECT_EQ(links[0].start, 4);
    EXPECT_EQ(links[0].length, 28);
    EXPECT_EQ(links[0].url, QUrl(u"http://example.org/a?b=c&d#e"_qs));
}

TEST(LinksTest, SeveralAreFoundInOrder) {
    EXPECT_EQ(found(u"https://a.b\nHTTP://c.d\thttps://e.f https://g.h"_qs),
              (QStringList{"https://a.b", "HTTP://c.d", "https://e.f", "https://g.h"}));
}

TEST(LinksTest, TextWithoutAnAddressHasNone) {
    for (const char* text : {"", "http", "http://", "https:// x", "http:/example.org", "www.", "www", "www. x", "www.x",
                             "example.org", "ann@www.example.org", "xhttp://example.org", "swww.example.org",
                             "http://.", "http://)", "(http://)", "https://...", "//example.org"})
        EXPECT_EQ(found(QString::fromUtf8(text)), QStringList()) << text;
    EXPECT_EQ(found(u"http://a b"_qs), QStringList{"http://a"});
}

TEST(LinksTest, OtherSchemesAreNeverLinks) {
    for (const char* text : {"javascript:alert(1)", "JaVaScRiPt:alert(1)", "file:///etc/passwd", "data:text/html,x",
                             "ftp://example.org", "vimble:add", "mailto:ann@example.org", "smb://host/share",
                             "htt\u200bp://example.org", "httpss://example.org"})
        EXPECT_EQ(found(QString::fromUtf8(text)), QStringList()) << text;
}

TEST(LinksTest, PunctuationOfTheSentenceIsLeftOut) {
    for (const char* end :
         {".", ",", ";", ":", "!", "?", "...", "?!", "\"", "'", "…", "”", "’", "»", "。", "、", "）", "*", ">"})
        EXPECT_EQ(found(u"Go to https://example.org/a"_qs + QString::fromUtf8(end)),
                  QStringList{"https://example.org/a"})
            << end;
    EXPECT_EQ(found(u"<https://example.org/>"_qs), QStringList{"https://example.org/"});
    EXPECT_EQ(found(u"“https://example.org/”"_qs), QStringList{"https://example.org/"});
}

TEST(LinksTest, BracketsBelongToTheLinkThatOpensThem) {
    EXPECT_EQ(found(u"(https://example.org/a)"_qs), QStringList{"https://example.org/a"});
    EXPECT_EQ(found(u"https://example.org/a_(b)"_qs), QStringList{"https://example.org/a_(b)"});
    EXPECT_EQ(found(u"(see https://example.org/a_(b).)"_qs), QStringList{"https://example.org/a_(b)"});
    EXPECT_EQ(found(u"[https://example.org/a]and more"_qs), QStringList{"https://example.org/a"});
    EXPECT_EQ(found(u"https://example.org/a("_qs), QStringList{"https://example.org/a"});
    EXPECT_EQ(found(u"[a](https://example.org/a)"_qs), QStringList{"https://example.org/a"});
}

TEST(LinksTest, AnAddressWithUserOrPasswordIsNone) {
    for (const char* text : {"https://user:pw@example.org", "https://good.org@evil.org/", "https://@example.org",
                             "https://:@example.org", "www.good.org@evil.org", "https://a%40b@example.org"})
        EXPECT_EQ(found(QString::fromUtf8(text)), QStringList()) << text;
    EXPECT_EQ(found(u"https://example.org/@user"_qs), QStringList{"https://example.org/@user"});
}

TEST(LinksTest, ABackslashEndsAnAddressSoThatNoReaderTakesTheHostForAnother) {
    EXPECT_EQ(onlyUrl(u"https://evil.org\\@good.org"_qs), "https://evil.org");
}

TEST(LinksTest, WwwWithAHostCountsAsHttps) {
    EXPECT_EQ(onlyUrl(u"at www.example.org/a."_qs), "https://www.example.org/a");
    EXPECT_EQ(onlyUrl(u"(WWW.example.org)"_qs), "https://www.example.org");
}

TEST(LinksTest, AHostOfOtherLettersIsOpenedInItsCodedForm) {
    EXPECT_EQ(onlyUrl(u"https://bücher.example/ä"_qs), "https://xn--bcher-kva.example/%C3%A4");
    EXPECT_EQ(found(u"https://例え.jp/パス。"_qs), QStringList{u"https://例え.jp/パス"_qs});
}

TEST(LinksTest, AnAddressMayBeGivenInNumbers) {
    EXPECT_EQ(onlyUrl(u"http://[::1]:8080/x"_qs), "http://[::1]:8080/x");
    EXPECT_EQ(onlyUrl(u"(http://[2001:db8::7])"_qs), "http://[2001:db8::7]");
    EXPECT_EQ(onlyUrl(u"http://127.0.0.1:80"_qs), "http://127.0.0.1:80");
    EXPECT_EQ(found(u"http://[::1"_qs), QStringList());
    EXPECT_EQ(found(u"http://example.org:99999/"_qs), QStringList());
}

TEST(LinksTest, WhatIsHiddenOrTurnsTheDirectionEndsALink) {
    EXPECT_EQ(found(u"https://example.org/\u202egpj.exe"_qs), QStringList{"https://example.org/"});
    EXPECT_EQ(found(u"https://example.org/a\u200bb"_qs), QStringList{"https://example.org/a"});
    EXPECT_EQ(found(u"https://example.org/a"_qs + QChar(0) + u"b"_qs), QStringList{"https://example.org/a"});
}

TEST(LinksTest, ThereIsALimitToTheirNumberAndLength) {
    EXPECT_EQ(Links::find(u"http://a.b "_qs.repeated(1500)).size(), 1000u);
    EXPECT_EQ(found(u"http://a.b/"_qs + u"x"_qs.repeated(4000)).size(), 1);
    EXPECT_EQ(found(u"http://a.b/"_qs + u"x"_qs.repeated(4096)).size(), 0);
}

TEST(LinksTest, ATextFullOfBeginningsIsReadOnce) {
    // A search that read on to the end of the text from each beginning would take minutes.
    for (const char* piece : {"http://", "www.", "http://(", "x@http://", "((((", "https://a@", "hhhh", "http://a "}) {
        const QString text = QString::fromUtf8(piece).repeated(200'000);
        EXPECT_LE(Links::find(text).size(), 1000u);
    }
}

TEST(LinksTest, OnlyAddressesOfTheWebMayBeOpened) {
    EXPECT_TRUE(Links::mayOpen(QUrl(u"http://example.org"_qs)));
    EXPECT_TRUE(Links::mayOpen(QUrl(u"HTTPS://example.org:8443/a?b#c"_qs)));
    for (const char* url :
         {"", "http:", "http:///x", "https://u@example.org", "https://u:p@example.org", "javascript:alert(1)",
          "file:///etc/passwd", "ftp://example.org", "example.org", "//example.org", "mailto:a@b", "vimble://x"})
        EXPECT_FALSE(Links::mayOpen(QUrl(QString::fromUtf8(url)))) << url;
}

}  // namespace
