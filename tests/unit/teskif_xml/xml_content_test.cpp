// What a file may hold, how its values read, and where a refusal says the fault is.
#include "xml_home.h"

#include <climits>
#include <cstring>

static std::string repeat(const std::string& text, int count)
{
    std::string all;
    for (int n = 0; n < count; n++) {
        all += text;
    }
    return all;
}

static std::string all(const std::string& inner)
{
    return "<root><all>" + inner + "</all></root>";
}

static std::string nested(int depth)
{
    return all(repeat("<d>", depth - 2) + repeat("</d>", depth - 2));
}

static std::string value(const std::string& text)
{
    return all("<x>" + text + "</x>");
}

static std::string longkey(int length)
{
    return all("<" + std::string(static_cast<size_t>(length) - strlen("/root/all/"), 'k') + "/>");
}

static std::string manykeys(int elements)
{
    std::string inner;
    for (int n = 2; n < elements; n++) {
        inner.append("<k").append(std::to_string(n)).append("/>");
    }
    return all(inner);
}

static std::string filesize(size_t bytes)
{
    return value("1") + std::string(bytes - value("1").size(), '\n');
}

struct Document {
    std::string name;
    std::string text; // of the section "all"
    std::string code;
    std::string error; // "line:column: sentence", as far as it matters
};

static void PrintTo(const Document& document, std::ostream* stream)
{
    *stream << document.name;
}

static const Document documents[] = {
    { "Empty", "", "SYNTAX", ":1:1: no element found" },
    { "Unclosed", "<root><all>", "SYNTAX", ":1:12: no element found" },
    { "Mismatch", "<root>\n <all></root>", "SYNTAX", ":2:9: mismatched tag" },
    { "UnknownEntity", value("&x;"), "SYNTAX", ":1:15: undefined entity" },
    { "NulByte", value("a\0b"s), "SYNTAX", "a NUL byte" },
    { "Utf16", "\xff\xfe<\0r\0o\0o\0t\0/\0>\0"s, "SYNTAX", "a NUL byte" },
    { "Latin1", value("\xe9t\xe9"), "SYNTAX", ":1:15: " },
    { "Latin1Declared", "<?xml version='1.0' encoding='ISO-8859-1'?>" + value("1"), "SYNTAX", "ISO-8859-1, not UTF-8" },
    { "Utf8", "\xef\xbb\xbf<?xml version='1.0' encoding='utf-8'?>" + value("1"), "OK", "" },
    { "EntityBomb", "<!DOCTYPE root [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;'>]>" + value("&b;"), "FORBIDDEN",
      "a DOCTYPE" },
    { "Attribute", all("\n  <x unit='s'>1</x>"), "FORBIDDEN", ":2:3: the element x has the attribute unit" },
    { "Instruction", all("<?run x?>"), "FORBIDDEN", ":1:12: the processing instruction run" },
    { "TextThenElement", value("1<y/>"), "FORBIDDEN", ":1:16: the element y follows a text" },
    { "ElementThenText", value("<y/>1"), "FORBIDDEN", ":1:19: text where only elements may be, in x" },
    { "OtherRoot", "<policy><all/></policy>", "SCOPE", ":1:1: the element policy lies outside /root" },
    { "OtherSection", "<root><all/><pm/></root>", "SCOPE", ":1:13: the element pm lies outside /root/all" },
    { "EmptySection", all(""), "OK", "" },
    { "KeyTwice", all("\n<x>1</x>\n<y/>\n<x>2</x>"), "DUPLICATE",
      ":4:1: the key /root/all/x is given twice, first in line 2" },
    { "BranchTwice", all("\n<x><a/></x>\n<x><b/></x>"), "DUPLICATE",
      ":3:1: the key /root/all/x is given twice, first in line 2" },
    { "SameNameElsewhere", all("<x><a/></x><y><a/></y>"), "OK", "" },
    { "Deepest", nested(TESKXML_MAX_DEPTH), "OK", "" },
    { "TooDeep", nested(TESKXML_MAX_DEPTH + 1), "LIMIT", ":1:54: more than 16 elements" },
    { "LongestKey", longkey(TESKXML_MAX_KEY), "OK", "" },
    { "TooLongKey", longkey(TESKXML_MAX_KEY + 1), "LIMIT", "the key gets longer than 511" },
    { "LongestValue", value(std::string(TESKXML_MAX_VALUE, 'v')), "OK", "" },
    { "TooLongValue", value(std::string(TESKXML_MAX_VALUE + 1, 'v')), "LIMIT", "the value of x is longer than 4095" },
    { "TooLongInPieces", value(repeat("v&amp;\n", TESKXML_MAX_VALUE)), "LIMIT", "the value of x is longer than 4095" },
    { "MostKeys", manykeys(TESKXML_MAX_KEYS), "OK", "" },
    { "TooManyKeys", manykeys(TESKXML_MAX_KEYS + 1), "LIMIT", "more than 8192 elements" },
    { "ManyBracketsInText", value("<!--" + repeat("<b", 10000) + "-->1"), "OK", "" },
    { "LargestFile", filesize(TESKXML_MAX_FILE), "OK", "" },
    { "TooLargeFile", filesize(TESKXML_MAX_FILE + 1), "LIMIT", "1048577 bytes, more than 1048576" },
};

class XmlDocument : public XmlHome, public testing::WithParamInterface<Document> {};

TEST_P(XmlDocument, IsTakenOrRefusedWhole)
{
    const std::string file = write("etc/policy/all.xml", GetParam().text);
    section("pm", "<lockf>work/lock</lockf>");
    ASSERT_EQ("OK", word(xmllib_load_policy("pm")));
    const auto before = loaded();

    EXPECT_EQ(GetParam().code, word(xmllib_load_policy("all"))) << teskxml_lasterror();

    const std::string error = teskxml_lasterror();
    if (GetParam().code != "OK") {
        EXPECT_EQ(0U, error.find(file + ":")) << error;
        EXPECT_NE(std::string::npos, error.find(GetParam().error)) << error;
        EXPECT_EQ(before, loaded());
        EXPECT_EQ("NOTLOADED", word(xmllib_unload_policy("all")));
    }
}

INSTANTIATE_TEST_SUITE_P(Xml, XmlDocument, testing::ValuesIn(documents), [](auto& test) { return test.param.name; });

TEST_F(XmlHome, ReadsTextsWithoutTheBlanksAroundThem)
{
    const std::pair<std::string, std::string> texts[] = {
        { " \t\r\n  a  b \n c \n\t ", "a  b \n c" },
        { " \n ", "" },
        { "a &amp; b &lt;c&gt; &#65;&#x42;", "a & b <c> AB" },
        { "x<![CDATA[<y> & ]]>z", "x<y> & z" },
        { "one<!-- not this -->two", "onetwo" },
        { "\xc2\xa0\xe3\x83\x97\xe2\x80\x83", "\xc2\xa0\xe3\x83\x97\xe2\x80\x83" }, // other spaces are text
    };
    for (const auto& [written, read] : texts) {
        write("etc/policy/all.xml", value(written));
        EXPECT_EQ("OK", word(xmllib_load_policy("all"))) << written;
        EXPECT_EQ(read, text("/root/all/x"));
        xmllib_unload_policy("all");
    }
}

TEST_F(XmlHome, ReadsWholeDecimalNumbersOnly)
{
    const std::pair<std::string, std::vector<std::string>> numbers[] = {
        { "42", { " 42\n", "+42", "0042" } },
        { "-3", { "-3" } },
        { "2147483647", { "2147483647" } },
        { "-2147483648", { "-2147483648" } },
        { "RANGE", { "2147483648", "-2147483649", "-21474836480", "99999999999", "18446744073709551617" } },
        { "NOTNUMBER", { "", "-", "+-1", "- 1", "12abc", "1 2", "1.0", "0x10", "\xc2\xb2" } },
    };
    for (const auto& [read, texts] : numbers) {
        for (const std::string& written : texts) {
            int number = 4711;
            int capacity = sizeof(number);
            write("etc/policy/all.xml", value(written));
            EXPECT_EQ("OK", word(xmllib_load_policy("all"))) << written;
            const std::string code = word(xmllib_get_value("/root/all/x", TESKXML_INT, &number, &capacity));
            EXPECT_EQ(read, code == "OK" ? std::to_string(number) : code) << written;
            EXPECT_TRUE(code == "OK" || number == 4711) << written;
            xmllib_unload_policy("all");
        }
    }
}

TEST_F(XmlHome, TellsWhichValueIsBadAndWhereItComesFrom)
{
    const std::string file =
        write("etc/config.xml", "<root>\n <dummyconf>1\x7f\t\xc2\x9b\xc3\x9b\xc2\xa0maybe</dummyconf></root>");
    ASSERT_EQ("OK", word(xmllib_load_config()));
    int number = 0;
    int capacity = sizeof(number);

    EXPECT_EQ("NOTNUMBER", word(xmllib_get_value("/root/dummyconf", TESKXML_INT, &number, &capacity)));
    EXPECT_EQ(file + ":2:1: /root/dummyconf is \"1????\xc3\x9b\xc2\xa0maybe\": the value is no whole decimal number",
              teskxml_lasterror());

    EXPECT_EQ("NOKEY", text("/"s + std::string(10000, 'k')));
    const std::string cut = teskxml_lasterror();
    EXPECT_EQ("k...", cut.substr(cut.size() - 4));
}

TEST_F(XmlHome, LeavesTheDestinationAloneUnlessTheValueFits)
{
    section("all", "<t>abcd</t><n>5</n><e/>");
    ASSERT_EQ("OK", word(xmllib_load_policy("all")));
    const struct {
        const char* key;
        int kind;
        int capacity;
        std::string code;
    } reads[] = { { "/root/all/t", TESKXML_TEXT, 5, "OK" },
                  { "/root/all/t", TESKXML_TEXT, 4, "CAPACITY" },
                  { "/root/all/e", TESKXML_TEXT, 1, "OK" },
                  { "/root/all/t", TESKXML_TEXT, 0, "ARGUMENT" },
                  { "/root/all/t", TESKXML_TEXT, -1, "ARGUMENT" },
                  { "/root/all/n", TESKXML_INT, INT_MIN, "ARGUMENT" },
                  { "/root/all/n", TESKXML_INT, 4, "OK" },
                  { "/root/all/n", TESKXML_INT, 8, "OK" },
                  { "/root/all/n", TESKXML_INT, 3, "CAPACITY" },
                  { "/root/all/n", 2, 8, "KIND" },
                  { "/root/all/n", -1, 8, "KIND" },
                  { nullptr, TESKXML_TEXT, 8, "ARGUMENT" } };
    for (const auto& read : reads) {
        std::string destination = "########";
        int capacity = read.capacity;
        EXPECT_EQ(read.code, word(xmllib_get_value(read.key, read.kind, destination.data(), &capacity)));
        EXPECT_EQ(read.code == "OK", destination != "########") << read.key << " " << read.capacity;
        EXPECT_EQ(read.capacity, capacity);
    }
    int capacity = 8;
    EXPECT_EQ("ARGUMENT", word(xmllib_get_value("/root/all/t", TESKXML_TEXT, nullptr, &capacity)));
    EXPECT_EQ("ARGUMENT", word(xmllib_get_value("/root/all/t", TESKXML_TEXT, &capacity, nullptr)));
}

TEST_F(XmlHome, FindsKeysByWholeNames)
{
    section("all", "<env><path>/bin</path></env><envy>1</envy><p></p>");
    ASSERT_EQ("OK", word(xmllib_load_policy("all")));

    EXPECT_EQ("/bin", text("/root/all/env/path"));
    EXPECT_EQ("1", text("/root/all/envy"));
    EXPECT_EQ("", text("/root/all/p"));
    for (const char* branch : { "/root", "/root/all", "/root/all/env" }) {
        EXPECT_EQ("NOVALUE", text(branch)) << branch;
    }
    for (const char* missing :
         { "", "/", "root/all/envy", "//root/all/envy", "/root//all/envy", "/root/all/envy/", "/root/all/env/pat",
           "/root/all/env/path2", "/root/all/envy/x", "/root/pm", "/roo", "/root/*/envy", "/root/all/envy[1]",
           "/root/all/./envy", "/root/all/env/../envy", "/ROOT/all/envy" }) {
        EXPECT_EQ("NOKEY", text(missing)) << missing;
    }
}

TEST_F(XmlHome, TellsEachOfTheMostKeysFromAllOthers)
{
    constexpr int count = TESKXML_MAX_KEYS - 2; // with "root" and "all"
    const auto name = [](int n) { return std::string(1 + static_cast<size_t>(n % 40), 'k') + std::to_string(n / 40); };
    std::string inner;
    for (int n = 0; n < count; n++) {
        inner.append("<").append(name(n)).append(">").append(std::to_string(n));
        inner.append("</").append(name(n)).append(">\n");
    }
    section("all", inner);
    ASSERT_EQ("OK", word(xmllib_load_policy("all")));

    for (int n = 0; n < count; n++) {
        ASSERT_EQ(std::to_string(n), text("/root/all/" + name(n)));
    }
    EXPECT_EQ("NOKEY", text("/root/all/" + name(count)));
    EXPECT_EQ(static_cast<size_t>(count), loaded().size());
}
