// Opening a policy of 100 lines, reading all its keys, closing it; and the parts of that.
// Each reader takes the same file from the disk, trims values, copies texts out and converts numbers.
#include "bench_home.h"
#include "teskxml.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <expat.h>
#include <fcntl.h>
#include <fstream>
#include <libxml/parser.h>
#include <memory>
#include <memory_resource>
#include <pugixml.hpp>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

struct Key {
    std::string path;
    std::string value;
    bool number;
};

// Six services of 14 keys, with the elements around them 100 lines.
std::vector<Key> make_keys()
{
    const std::array<Key, 14> row = { {
        { "type", "dusko", false },
        { "path", "/opt/cluster/bin/sample_dusko", false },
        { "param", "-v --interval 30", false },
        { "lockf", "/var/lock/cluster/pm.lock", false },
        { "action", "2", true },
        { "restarttime", "3", true },
        { "waittime", "60", true },
        { "parent_timeout", "120", true },
        { "child_timeout", "90", true },
        { "core", "1", true },
        { "stacksize", "8388608", true },
        { "level", "4", true },
        { "size", "5000000", true },
        { "pattern", "0", true },
    } };
    std::vector<Key> keys;
    for (const char* service : { "dusko", "goru", "lenk", "pelkant", "sorvin", "tamzile" }) {
        for (const Key& key : row) {
            keys.push_back({ "/root/bench/" + std::string(service) + "/" + key.path, key.value, key.number });
        }
    }
    return keys;
}

class Policy : public BenchHome {
public:
    Policy() : keys(make_keys())
    {
        std::filesystem::create_directories(path / "etc/policy");
        file = path / "etc/policy/bench.xml";
        std::ofstream out(file);
        out << "<root>\n  <bench>\n";
        for (size_t begin = 0; begin < keys.size(); begin += 14) {
            const std::string service = name(keys[begin].path, 3);
            out << "    <" << service << ">\n";
            for (size_t n = begin; n < begin + 14; n++) {
                const std::string element = name(keys[n].path, 4);
                out << "      <" << element << ">" << keys[n].value << "</" << element << ">\n";
            }
            out << "    </" << service << ">\n";
        }
        out << "  </bench>\n</root>\n";
        out.close();
        for (const std::filesystem::path& each : { path, path / "etc", path / "etc/policy" }) {
            need(chmod(each.c_str(), 0755) == 0, "chmod");
        }
        need(chmod(file.c_str(), 0644) == 0, "chmod");
    }

    const std::vector<Key> keys;
    std::string file;

private:
    // The element of a key at a depth, "/root" having 1.
    static std::string name(const std::string& key, int depth)
    {
        size_t begin = 0;
        while (depth-- > 0) {
            begin = key.find('/', begin) + 1;
        }
        return key.substr(begin, key.find('/', begin) - begin);
    }
};

const Policy policy;

std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t\r\n");
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

bool copy(std::string_view text, char* target, size_t capacity)
{
    const bool fits = text.size() < capacity;
    if (fits) {
        memcpy(target, text.data(), text.size());
        target[text.size()] = '\0';
    }
    return fits;
}

bool convert(const char* text, int* number)
{
    char* end = nullptr;
    const long value = strtol(text, &end, 10);
    *number = static_cast<int>(value);
    return end != text && *end == '\0' && value == *number;
}

// ---------------------------------------------------------------- readers ----

class Teskxml {
public:
    Teskxml()
    {
        need(xmllib_init("bench") == 0 && xmllib_load_policy("bench") == 0, "teskxml");
    }
    ~Teskxml()
    {
        xmllib_term();
    }
    static bool text(const char* key, char* target, int capacity)
    {
        return xmllib_get_value(key, TESKXML_TEXT, target, &capacity) == 0;
    }
    static bool number(const char* key, int* target)
    {
        int capacity = sizeof(*target);
        return xmllib_get_value(key, TESKXML_INT, target, &capacity) == 0;
    }
};

class Expat {
public:
    Expat()
    {
        std::unique_ptr<char[]> data;
        const size_t size = read_file(data);
        std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate("UTF-8"), XML_ParserFree);
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(parser.get(), on_start, on_end);
        XML_SetCharacterDataHandler(parser.get(), on_text);
        need(XML_Parse(parser.get(), data.get(), static_cast<int>(size), XML_TRUE) == XML_STATUS_OK, "expat");
    }
    bool text(const char* key, char* target, size_t capacity) const
    {
        const auto found = values.find(std::string_view(key));
        return found != values.end() && copy(found->second, target, capacity);
    }
    bool number(const char* key, int* target) const
    {
        const auto found = values.find(std::string_view(key));
        return found != values.end() && convert(found->second.c_str(), target);
    }

    static size_t read_file(std::unique_ptr<char[]>& data)
    {
        struct stat status = {};
        const int fd = open(policy.file.c_str(), O_RDONLY | O_CLOEXEC);
        need(fd >= 0 && fstat(fd, &status) == 0, "open");
        data = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(status.st_size));
        need(read(fd, data.get(), static_cast<size_t>(status.st_size)) == status.st_size, "read");
        close(fd);
        return static_cast<size_t>(status.st_size);
    }

private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const
        {
            return std::hash<std::string_view>()(text);
        }
    };

    static void on_start(void* user, const XML_Char* name, const XML_Char**)
    {
        Expat* self = static_cast<Expat*>(user);
        self->path.append("/").append(name);
        self->content.clear();
        self->leaf = true;
    }
    static void on_text(void* user, const XML_Char* text, int size)
    {
        static_cast<Expat*>(user)->content.append(text, static_cast<size_t>(size));
    }
    static void on_end(void* user, const XML_Char*)
    {
        Expat* self = static_cast<Expat*>(user);
        if (self->leaf) {
            self->values.emplace(self->path, trimmed(self->content));
        }
        self->leaf = false;
        self->path.resize(self->path.rfind('/'));
    }

    std::string path;
    std::string content;
    bool leaf = false;
    // One block instead of an allocation for each key, so that the peer is parsing and hardly anything else.
    std::array<std::byte, 32768> block;
    std::pmr::monotonic_buffer_resource memory{ block.data(), block.size() };
    std::pmr::unordered_map<std::pmr::string, std::pmr::string, Hash, std::equal_to<>> values{ 128, &memory };
};

class Libxml2 {
public:
    Libxml2() : doc(xmlReadFile(policy.file.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOBLANKS), xmlFreeDoc)
    {
        need(doc != nullptr, "libxml2");
    }
    bool text(const char* key, char* target, size_t capacity) const
    {
        return copy(value(key), target, capacity);
    }
    bool number(const char* key, int* target) const
    {
        char digits[32];
        return copy(value(key), digits, sizeof(digits)) && convert(digits, target);
    }

private:
    std::string_view value(std::string_view key) const
    {
        const xmlNode* node = reinterpret_cast<const xmlNode*>(doc.get());
        while (!key.empty()) {
            const std::string_view name = key.substr(1, key.find('/', 1) - 1);
            for (node = node->children; node != nullptr; node = node->next) {
                if (name == reinterpret_cast<const char*>(node->name)) {
                    break;
                }
            }
            need(node != nullptr, "libxml2 key");
            key.remove_prefix(1 + name.size());
        }
        return trimmed(reinterpret_cast<const char*>(node->children->content));
    }

    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> doc;
};

class Pugixml {
public:
    Pugixml()
    {
        need(doc.load_file(policy.file.c_str(), pugi::parse_default | pugi::parse_trim_pcdata), "pugixml");
    }
    bool text(const char* key, char* target, size_t capacity) const
    {
        return copy(doc.first_element_by_path(key).text().get(), target, capacity);
    }
    bool number(const char* key, int* target) const
    {
        return convert(doc.first_element_by_path(key).text().get(), target);
    }

private:
    pugi::xml_document doc;
};

// ---------------------------------------------------------------- measurements ----

template <class Reader> void read_all(const Reader& reader)
{
    for (const Key& key : policy.keys) {
        char text[1024];
        int number = 0;
        const bool found =
            key.number ? reader.number(key.path.c_str(), &number) : reader.text(key.path.c_str(), text, sizeof(text));
        need(found, key.path.c_str());
        benchmark::DoNotOptimize(number);
        benchmark::DoNotOptimize(text);
    }
}

template <class Reader> void whole(benchmark::State& state)
{
    for (auto _ : state) {
        const Reader reader;
        read_all(reader);
    }
}

template <class Reader> void load(benchmark::State& state)
{
    for (auto _ : state) {
        const Reader reader;
        benchmark::DoNotOptimize(reader);
    }
}

template <class Reader> void reads(benchmark::State& state)
{
    const Reader reader;
    for (auto _ : state) {
        read_all(reader);
    }
}

// The file alone, without an XML reader: opened by its path, and step by step with a look at each descriptor, which is
// the least that a trusted opening takes.
void file_plain(benchmark::State& state)
{
    for (auto _ : state) {
        std::unique_ptr<char[]> data;
        benchmark::DoNotOptimize(Expat::read_file(data));
    }
}

void file_trusted(benchmark::State& state)
{
    std::array<char, 65536> data;
    for (auto _ : state) {
        struct stat status = {};
        int fd = AT_FDCWD;
        for (const char* name : { policy.path.c_str(), "etc", "policy", "bench.xml" }) {
            const int flags = strcmp(name, "bench.xml") == 0 ? O_RDONLY | O_NONBLOCK : O_PATH | O_DIRECTORY;
            const int next = openat(fd, name, flags | O_NOFOLLOW | O_CLOEXEC);
            need(next >= 0 && fstat(next, &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0, name);
            if (fd >= 0) {
                close(fd);
            }
            fd = next;
        }
        need(read(fd, data.data(), data.size()) == status.st_size, "read");
        close(fd);
    }
}

BENCHMARK(whole<Teskxml>);
BENCHMARK(whole<Expat>);
BENCHMARK(whole<Libxml2>);
BENCHMARK(whole<Pugixml>);
BENCHMARK(load<Teskxml>);
BENCHMARK(load<Expat>);
BENCHMARK(load<Libxml2>);
BENCHMARK(load<Pugixml>);
BENCHMARK(reads<Teskxml>);
BENCHMARK(reads<Expat>);
BENCHMARK(reads<Libxml2>);
BENCHMARK(reads<Pugixml>);
BENCHMARK(file_plain);
BENCHMARK(file_trusted);

} // namespace
