// What a file may hold, how its values read, and where a refusal says the fault is.
#include "xml_home.h"

#include <iterator>
#include <sstream>

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

static std::string value(const std::string& text)
{
    return all("<x>" + text + "</x>");
}

static std::string manykeys(int elements)
{
    std::ostringstream inner;
    for (int n = 2; n < elements; n++) {
        inner << "<k" << n << ">" << n << "</k" << n << ">";
    }
    return all(inner.str());
}

TEST_F(XmlHome, TakesOrRefusesAFileWhole)
{
    const std::string longestkey(TESKXML_MAX_KEY - "/root/all/"s.size(), 'k');
    const std::string longest(TESKXML_MAX_VALUE, 'v');
    const std::string largest = value("1") + std::string(TESKXML_MAX_FILE - value("1").size(), '\n');
    const int deepest = TESKXML_MAX_DEPTH - 2;
    // The file of the section "all", the result, and from where on the sentence about it has to read so.
    const std::tuple<std::string, std::string, std::string> documents[] = {
        { "", "SYNTAX", ":1:1: no element found" },
        { value("a\0b"s), "SYNTAX", "a NUL byte" },
        { value("\xe9t\xe9"), "SYNTAX", ":1:15: " },
        { "<?xml version='1.0' encoding='ISO-8859-1'?>" + value("1"), "SYNTAX", "ISO-8859-1, not UTF-8" },
        { "\xef\xbb\xbf<?xml version='1.0' encoding='utf-8'?>" + value("1"), "OK", "" },
        { "<!--\n<!DOCTYPE--> <!DOCTYPE\nroot SYSTEM '<!DOCTYPE'>" + value("1"), "FORBIDDEN", ":2:14: a DOCTYPE" },
        { value("<![CDATA[<!DOCTYPE]]>&#60;!DOCTYPE"), "OK", "" },
        { all("\n  <x unit='s'>1</x>"), "FORBIDDEN", ":2:3: the element x has the attribute unit" },
        { all("<?run x?>"), "FORBIDDEN", ":1:12: the processing instruction run" },
        { value("\xc3\xa9<y/>"), "FORBIDDEN", ":1:17: the element y follows a text" },
        { value("<y/>1"), "FORBIDDEN", ":1:19: text where only elements may be, in x" },
        { value("1\n<!-- 2 -->\n3"), "FORBIDDEN", ":3:1: text behind a comment in the value of x" },
        { "\n <root/>", "SCOPE", ":2:2: there is no element all in /root" },
        { "<policy><all/></policy>", "SCOPE", ":1:1: the element policy lies outside /root" },
        { "<root><all/><pm/></root>", "SCOPE", ":1:13: the element pm lies outside /root/all" },
        { all(""), "OK", "" },
        { all("\n<x>1</x>\n<y/>\n\r<x>2</x>"), "DUPLICATE",
          ":4:2: the key /root/all/x is given twice, first in line 2" },
        { all("\n<x><a/></x>\n<x><b/></x>"), "DUPLICATE", ":3:1: the key /root/all/x is given twice, first in line 2" },
        { all("<x><a/></x><y><a/></y>"), "OK", "" },
        { all(repeat("<d>", deepest) + repeat("</d>", deepest)), "OK", "" },
        { all(repeat("<d>", deepest + 1) + repeat("</d>", deepest + 1)), "LIMIT", ":1:54: more than 16 elements" },
        { all("<" + longestkey + "/>"), "OK", "" },
        { all("<" + longestkey + "k/>"), "LIMIT", "the key gets longer than 511" },
        { value(longest), "OK", "" },
        { value(longest + "v"), "LIMIT", "the value of x is longer than 4095" },
        { manykeys(TESKXML_MAX_KEYS + 1), "LIMIT", "more than 8192 elements" },
        { largest, "OK", "" },
        { largest + "\n", "LIMIT", "1048577 bytes, more than 1048576" },
    };
    load("pm", "<lockf>work/lock</lockf>");
    const auto before = loaded();
    const auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto opened = descriptors();
    for (const auto& [text, code, error] : documents) {
        const std::string file = write("etc/policy/all.xml", text);
        SCOPED_TRACE(text.substr(0, 100));
        EXPECT_EQ(code, word(xmllib_load_policy("all")));
        EXPECT_TRUE(code == "OK" || (told(file + ":") && told(error))) << failure();
        EXPECT_EQ(code == "OK" ? "OK" : "NOTLOADED", word(xmllib_unload_policy("all")));
        EXPECT_EQ(before, loaded());
        EXPECT_EQ(opened, descriptors());
    }
}

TEST_F(XmlHome, ReadsTextsWithoutTheBlanksAroundThem)
{
    const std::pair<std::string, std::string> texts[] = {
        { " \t\r\n  a  b \n c \n\t ", "a  b \n c" },
        { " \n ", "" },
        { "a &amp; b &lt;c&gt; &#65;&#x42;", "a & b <c> AB" },
        { "x<![CDATA[<y> & ]]>z", "x<y> & z" },
        { "<!-- not this -->one <!-- nor this -->\n<!---->", "one" },
        { "\xc2\xa0\xe3\x83\x97\xe2\x80\x83", "\xc2\xa0\xe3\x83\x97\xe2\x80\x83" }, // other spaces are text
    };
    for (const auto& [written, read] : texts) {
        load("all", "<x>" + written + "</x>");
        EXPECT_EQ(read, text("/root/all/x"));
    }
}

TEST_F(XmlHome, ReadsWholeDecimalNumbersOnly)
{
    const std::pair<std::string, std::vector<std::string>> numbers[] = {
        { "42", { " 42\n", "+42", "0042" } },
        { "2147483647", { "2147483647" } },
        { "-2147483648", { "-2147483648" } },
        { "RANGE", { "2147483648", "-2147483649", "-21474836480", "18446744073709551617" } },
        { "NOTNUMBER", { "", "-", "+-1", "- 1", "12abc", "1 2", "1.0", "0x10", "\xc2\xb2" } },
    };
    for (const auto& [read, texts] : numbers) {
        for (const std::string& written : texts) {
            int number = 4711;
            int capacity = sizeof(number);
            load("all", "<x>" + written + "</x>");
            const std::string code = word(xmllib_get_value("/root/all/x", TESKXML_INT, &number, &capacity));
            EXPECT_EQ(read, code == "OK" ? std::to_string(number) : code) << written;
        }
    }
}

TEST_F(XmlHome, TellsWhichValueIsBadAndWhereItComesFrom)
{
    const std::string file = write("etc/config.xml", "<root>\n <x>1\x7f\t\xc2\x9b\xc3\x9b maybe</x></root>");
    ASSERT_EQ("OK", word(xmllib_load_config()));
    int number = 0;
    int capacity = sizeof(number);
    EXPECT_EQ("NOTNUMBER", word(xmllib_get_value("/root/x", TESKXML_INT, &number, &capacity)));
    EXPECT_EQ(file + ":2:2: /root/x is \"1????\xc3\x9b maybe\": the value is no whole decimal number", failure());

    load("all", "<x>" + repeat("\xc2\xb2x", 23) + "</x>");
    EXPECT_EQ("NOTNUMBER", word(xmllib_get_value("/root/all/x", TESKXML_INT, &number, &capacity)));
    EXPECT_TRUE(told("\xb2x...\": the value is no")) << failure();
}

TEST_F(XmlHome, LeavesTheDestinationAloneUnlessTheValueFits)
{
    load("all", "<t>abcd</t><n>5</n>");
    const std::tuple<const char*, int, int, std::string> reads[] = {
        { "/root/all/t", TESKXML_TEXT, 5, "OK" },       { "/root/all/t", TESKXML_TEXT, 4, "CAPACITY" },
        { "/root/all/t", TESKXML_TEXT, 0, "ARGUMENT" }, { "/root/all/n", TESKXML_INT, 4, "OK" },
        { "/root/all/n", TESKXML_INT, 3, "CAPACITY" },  { "/root/all/n", 2, 8, "KIND" },
        { nullptr, TESKXML_TEXT, 8, "ARGUMENT" },
    };
    for (const auto& [key, kind, given, code] : reads) {
        std::string destination = "########";
        int capacity = given;
        EXPECT_EQ(code, word(xmllib_get_value(key, kind, destination.data(), &capacity))) << given;
        EXPECT_EQ(code == "OK", destination != "########") << given;
        EXPECT_EQ(given, capacity);
    }
}

TEST_F(XmlHome, FindsKeysByWholeNames)
{
    load("all", "<env><path>/bin</path></env><envy>1</envy>");
    EXPECT_EQ("/bin", text("/root/all/env/path"));
    EXPECT_EQ("1", text("/root/all/envy"));
    EXPECT_EQ("NOVALUE", text("/root/all/env"));
    EXPECT_TRUE(told("all.xml:1:12: /root/all/env: ")) << failure();
    for (const char* missing : { "", "/", "root/all/envy", "//root/all/envy", "/root//all/envy", "/root/all/envy/",
                                 "/root/all/env/pat", "/root/all/env/path2", "/root/all/envy/x", "/roo" }) {
        EXPECT_EQ("NOKEY", text(missing)) << missing;
    }
    EXPECT_EQ("NOKEY", text("/" + std::string(10000, 'k')));
    EXPECT_TRUE(failure().ends_with("k...")) << failure();
}

TEST_F(XmlHome, TellsEachOfTheMostKeysFromAllOthers)
{
    write("etc/policy/all.xml", manykeys(TESKXML_MAX_KEYS));
    ASSERT_EQ("OK", word(xmllib_load_policy("all")));
    for (int n = 2; n < TESKXML_MAX_KEYS; n++) {
        ASSERT_EQ(std::to_string(n), text("/root/all/k" + std::to_string(n)));
    }
    EXPECT_EQ("NOKEY", text("/root/all/k" + std::to_string(TESKXML_MAX_KEYS)));
}
