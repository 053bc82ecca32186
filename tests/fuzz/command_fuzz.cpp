// A command line: the input is its arguments, the program's name first, with a NUL between them. What was read as the
// service's own arguments is split, and so is the program's name, which may be of any length.
#include "fuzz.h"
#include "monp.h"
#include "tesklog.h"

#include <algorithm>
#include <cstdarg>
#include <memory>
#include <vector>

static int errors; // logged for the current input

extern "C" void log_write(void*, int level, int, const char*, int, const char*, const char* format, ...)
{
    char line[256];
    va_list args;
    va_start(args, format);
    FUZZ_CHECK(vsnprintf(line, sizeof(line), format, args) >= 0); // so that every argument is read
    va_end(args);
    errors += level == TESKLOG_ERROR ? 1 : 0;
}

static void check_split(const std::string& text, size_t max)
{
    const bool fits = text.size() < MONP_OPT_PARAM_LEN;
    const std::unique_ptr<char, void (*)(void*)> param(strdup(text.c_str()), free);
    char guard = '\0';
    std::vector<char*> argv(max + 1, &guard);
    size_t parsed = 0;
    int num = -1;

    const int ret = monp_parse_param(param.get(), argv.data(), static_cast<int>(max), &num);
    FUZZ_CHECK(ret == (fits ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN));
    size_t begin = fits ? text.find_first_not_of(' ') : std::string::npos;
    while (begin != std::string::npos && parsed < max) {
        const size_t end = std::min(text.find(' ', begin), text.size());
        FUZZ_CHECK(argv[parsed] == param.get() + begin); // inside the text, in order
        FUZZ_CHECK(text.compare(begin, end - begin, argv[parsed]) == 0);
        parsed++;
        begin = text.find_first_not_of(' ', end);
    }
    FUZZ_CHECK(num == static_cast<int>(parsed) && argv[parsed] == &guard);
}

// What the command line left in the record.
static void check_read(int ret, const std::vector<std::string>& args)
{
    const size_t length = strnlen(gmonpparam.type, sizeof(gmonpparam.type));
    FUZZ_CHECK(length <= 29 && strnlen(gmonpparam.param, sizeof(gmonpparam.param)) < sizeof(gmonpparam.param));
    FUZZ_CHECK((ret == MONP_RET_SUCCESS && errors == 0) || (ret == MONP_RET_FAIL_PARAM && errors == 1));
    if (ret == MONP_RET_SUCCESS) {
        const int action = gmonpparam.action;
        FUZZ_CHECK(length >= 1 && std::count(args.begin() + 1, args.end(), "--" + std::string(gmonpparam.type)) >= 1);
        FUZZ_CHECK(action == -1 || (action >= MONP_ACT_NONE && action <= MONP_ACT_OS_REBOOT));
        FUZZ_CHECK(gmonpparam.restime >= -1 && gmonpparam.wait >= -1);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input{ { reinterpret_cast<const char*>(data), size } };
    std::vector<std::string> args{ input.text() };
    while (!input.rest.empty()) {
        args.push_back(input.text());
    }
    std::vector<char*> argv(args.size() + 1); // each argument in a block of its exact size
    std::transform(args.begin(), args.end(), argv.begin(), [](const std::string& arg) { return strdup(arg.c_str()); });

    errors = 0;
    gmonpparam = {};
    gbmonpnostart = 0;
    check_read(monp_getopt(static_cast<int>(args.size()), argv.data()), args);
    check_split(gmonpparam.param, MONP_OPT_NUM - 2);
    check_split(args[0], args.size());
    std::for_each(argv.begin(), argv.end(), free);
    return 0;
}
