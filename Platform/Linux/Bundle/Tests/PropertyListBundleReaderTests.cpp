#include "PlatformBundle/PropertyListBundleReader.h"

#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

std::string plist(const std::string& inside) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist SYSTEM \"plist.dtd\">\n<plist "
           "version=\"1.0\">\n" +
           inside + "\n</plist>\n";
}

std::string dictionary(const std::string& inside) { return plist("<dict>" + inside + "</dict>"); }

TEST(PropertyListTest, TextsAreReadAndOtherValuesLeftOut) {
    const auto texts = textsOfPropertyList(dictionary(
        "<key>Name</key><string>V&lt;i&amp;m \u00E9</string><key>Number</key><integer>7</integer><key>Yes</key><true/>"
        "<key>List</key><array><string>a</string><dict><key>Name</key><string>inner</string></dict></array>"
        "<key>Empty</key><string></string><key>Real</key><real>1.5</real><key>Data</key><data>AAAA</data>"));
    ASSERT_TRUE(texts);
    EXPECT_EQ(*texts, (std::map<std::string, std::string, std::less<>>{{"Name", "V<i&m \u00E9"}, {"Empty", ""}}));
}

TEST(PropertyListTest, ADictionaryWithNothingInItIsOne) { EXPECT_TRUE(textsOfPropertyList(dictionary(""))); }

TEST(PropertyListTest, WhatIsNoDictionaryIsRefused) {
    for (const std::string& xml :
         {std::string(), std::string(" \n"), std::string("bplist00"), std::string("{\"a\":1}"), std::string("<html/>"),
          plist("<string>a</string>"), plist("<array/>"), plist(""), std::string("<plist"), std::string("<"),
          dictionary("<key>a</key>") + std::string(1, '\0'), dictionary("<key>a</key><string>\xff</string>")})
        EXPECT_FALSE(textsOfPropertyList(xml)) << xml;
}

TEST(PropertyListTest, TheBinaryFormIsRefused) {
    // {"a": "b"} in that form.
    const std::string binary(
        "bplist00\xd1\x01\x02Qa\x51"
        "b\x08\x0b\x0d\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0f",
        8 + 3 + 4 + 3 + 32);
    EXPECT_FALSE(textsOfPropertyList(binary));
}

TEST(PropertyListTest, OfAKeyThatComesTwiceTheLastCounts) {
    const auto texts = textsOfPropertyList(
        dictionary("<key>a</key><string>1</string><key>b</key><string>1</string><key>a</key><string>2</string>"
                   "<key>b</key><integer>2</integer>"));
    ASSERT_TRUE(texts);
    EXPECT_EQ(*texts, (std::map<std::string, std::string, std::less<>>{{"a", "2"}}));
}

TEST(PropertyListTest, EntitiesOfOnesOwnAreRefused) {
    EXPECT_FALSE(
        textsOfPropertyList("<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY x SYSTEM \"/etc/passwd\">]>"
                            "<plist version=\"1.0\"><dict><key>a</key><string>&x;</string></dict></plist>"));
    EXPECT_FALSE(textsOfPropertyList(dictionary("<key>a</key><string>&x;</string>")));
}

TEST(PropertyListTest, DeepNestingIsRefused) {
    std::string deep;
    for (int i = 0; i < 1001; ++i) deep += "<array>";
    for (int i = 0; i < 1001; ++i) deep += "</array>";
    EXPECT_FALSE(textsOfPropertyList(dictionary("<key>a</key>" + deep)));
    // Hiding the ends in comments does not help.
    std::string open;
    for (int i = 0; i < 3000; ++i) open += "<array><!--</array>-->";
    EXPECT_FALSE(textsOfPropertyList(dictionary("<key>a</key>" + open)));
}

TEST(PropertyListTest, NoCutOfAListMakesAnother) {
    const std::string whole = dictionary("<key>a</key><string>1</string><key>b</key><string>2</string>");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto texts = textsOfPropertyList(whole.substr(0, length));
        // The library accepts a list without its last closing tags, but no value may be cut short.
        EXPECT_TRUE(!texts || texts == textsOfPropertyList(whole)) << length;
    }
}

class PropertyListBundleReaderTest : public testing::Test {
protected:
    TemporaryFolder folder;
    std::filesystem::path bundle = folder.path / "A.app";
    std::filesystem::path list = bundle / "Contents" / "Info.plist";
    PropertyListBundleReader reader;
};

TEST_F(PropertyListBundleReaderTest, ABundleTellsItsTextsAndExecutable) {
    makeTestBundle(bundle, "1.2.3");
    const auto opened = reader.open(bundle);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->path, bundle);
    EXPECT_EQ(opened->versionText(), "1.2.3");
    EXPECT_EQ(opened->executable(), bundle / "Contents" / "Linux" / "Vimble");
}

TEST_F(PropertyListBundleReaderTest, WhatHasNoListOfItsOwnIsNoBundle) {
    EXPECT_FALSE(reader.open(bundle));
    makeTestBundle(bundle, "1");
    std::filesystem::rename(list, folder.path / "elsewhere");
    EXPECT_FALSE(reader.open(bundle));
    std::filesystem::create_symlink(folder.path / "elsewhere", list);
    EXPECT_FALSE(reader.open(bundle));
    std::filesystem::remove(list);
    std::filesystem::create_directory(list);
    EXPECT_FALSE(reader.open(bundle));
    std::filesystem::remove(list);
    // Opening a pipe could wait for a writer.
    ASSERT_EQ(::mkfifo(list.c_str(), 0600), 0);
    EXPECT_FALSE(reader.open(bundle));
}

TEST_F(PropertyListBundleReaderTest, AListOfMoreThan64KiBIsRefused) {
    makeTestBundle(bundle, "1");
    std::filesystem::remove(list);
    const std::string text = dictionary("<key>a</key><string>1</string>");
    std::ofstream(list) << text << std::string(PropertyListBundleReader::maxSize - text.size(), ' ');
    EXPECT_TRUE(reader.open(bundle));
    std::ofstream(list, std::ios::app) << ' ';
    EXPECT_FALSE(reader.open(bundle));
}

}  // namespace
