// cutil md5: the digests of files of any size, as md5sum prints them, and files held against such a list.
#include "colour.h"
#include "input.h"
#include "json.h"

#include "internal/md5.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <strings.h>

namespace cutil
{

namespace
{

namespace internal = cu::internal;

constexpr char help[] =
    "Without a FILE or a LIST, or where it is '-', it is the standard input. A line holds 32 hexadecimal digits,\n"
    "two spaces and the name, as md5sum(1) writes it: a backslash, line feed or carriage return in a name is\n"
    "shown as '\\\\', '\\n' or '\\r', and the line then begins with a backslash. The files may have any size.\n"
    "\n"
    "The digest tells accidental changes, not forgeries.\n";

/// What a read takes at most; a multiple of the bytes in a block of the digest.
constexpr std::size_t blockSize = 65536;

constexpr std::size_t digits = std::size_t{2} * internal::md5DigestSize;

/// Of an input: what is left of it in hexadecimal digits. @return false when it cannot be read, with `errno` set
bool digest(Input& input, std::string& text)
{
    internal::Md5 md5;
    std::array<unsigned char, blockSize> block;
    ssize_t count = 0;
    while ((count = input.read(block.data(), block.size())) > 0)
        md5.add(block.data(), static_cast<std::size_t>(count));
    if (count != 0)
        return false;
    md5.finish(block.data());
    text.clear();
    for (std::size_t i = 0; i < internal::md5DigestSize; ++i) {
        text += "0123456789abcdef"[block[i] >> 4];
        text += "0123456789abcdef"[block[i] & 15];
    }
    return true;
}

/// The characters that do not stand for themselves in a line that begins with a backslash, and how they are shown.
constexpr std::string_view special = "\\\n\r";
constexpr std::string_view shown = "\\nr";

std::string escaped(std::string_view name)
{
    std::string text;
    for (const char character : name) {
        const std::size_t which = special.find(character);
        if (which != std::string_view::npos)
            text += '\\';
        text += which != std::string_view::npos ? shown[which] : character;
    }
    return text;
}

/// @return false when a backslash stands before another character, or before none
bool unescape(std::string& text)
{
    std::string name;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            name += text[at];
            continue;
        }
        const std::size_t which = ++at < text.size() ? shown.find(text[at]) : std::string_view::npos;
        if (which == std::string_view::npos)
            return false;
        name += special[which];
    }
    text = name;
    return true;
}

int print(const Arguments& arguments, const char* path)
{
    Input input(path);
    std::string text;
    if (!digest(input, text))
        return fail("%s: %s", input.name(), strerror(errno));
    const bool isEscaped = strpbrk(path, special.data()) != nullptr;
    if (arguments.has('j'))
        Json().add("file", path).add("md5", text).print();
    else
        printf("%s%s  %s\n", isEscaped ? "\\" : "", text.c_str(), isEscaped ? escaped(path).c_str() : path);
    return done;
}

struct Entry {
    std::string digest;
    std::string name;
};

/// Takes a line apart: a digest, a space, a second one or an asterisk, a name.
bool parse(std::string_view line, Entry& entry)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const bool isEscaped = line.starts_with('\\');
    line.remove_prefix(isEscaped ? 1 : 0);
    if (line.size() < digits + 3 || line.find_first_not_of("0123456789abcdefABCDEF") != digits || line[digits] != ' ' ||
        (line[digits + 1] != ' ' && line[digits + 1] != '*'))
        return false;
    entry.digest = line.substr(0, digits);
    entry.name = line.substr(digits + 2);
    return entry.name.find('\0') == std::string::npos && (!isEscaped || unescape(entry.name));
}

bool readAll(Input& input, std::string& text)
{
    std::array<char, blockSize> block;
    ssize_t count = 0;
    while ((count = input.read(block.data(), block.size())) > 0)
        text.append(block.data(), static_cast<std::size_t>(count));
    return count == 0;
}

/// What became of the lines of a list.
struct Tally {
    unsigned proper = 0;
    unsigned improper = 0;
    unsigned unreadable = 0;
    unsigned mismatched = 0;
};

void check(const Entry& entry, Tally& tally, bool asJson, bool coloured)
{
    Input input(entry.name.c_str());
    std::string text;
    const char* verdict = "OK";
    if (!digest(input, text)) {
        static_cast<void>(fail("%s: %s", input.name(), strerror(errno)));
        ++tally.unreadable;
        verdict = "FAILED open or read";
    } else if (strcasecmp(text.c_str(), entry.digest.c_str()) != 0) {
        ++tally.mismatched;
        verdict = "FAILED";
    }
    if (asJson) {
        Json().add("file", entry.name).add("verdict", verdict).print();
        return;
    }
    // Nothing but a line feed could be taken for something else here.
    const bool isEscaped = entry.name.find('\n') != std::string::npos;
    const bool isRed = coloured && verdict[0] == 'F';
    printf("%s%s: %s%s%s\n", isEscaped ? "\\" : "", (isEscaped ? escaped(entry.name) : entry.name).c_str(),
           isRed ? red : "", verdict, isRed ? plain : "");
}

void warn(unsigned count, const char* ofOne, const char* ofMany)
{
    if (count != 0)
        static_cast<void>(fail("WARNING: %u %s", count, count == 1 ? ofOne : ofMany));
}

int checkList(const Arguments& arguments, const char* path)
{
    bool coloured = false;
    if (const int status = readColour(md5Command, arguments, coloured); status != done)
        return status;
    Input list(path);
    std::string text;
    if (!readAll(list, text))
        return fail("%s: %s", list.name(), strerror(errno));
    Tally tally;
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.empty() || line[0] == '#')
            continue;
        Entry entry;
        if (!parse(line, entry) || (list.isStandard() && entry.name == "-")) {
            ++tally.improper;
            continue;
        }
        ++tally.proper;
        check(entry, tally, arguments.has('j'), coloured);
    }
    if (tally.proper == 0)
        return fail("%s: no properly formatted checksum lines found", list.name());
    warn(tally.improper, "line is improperly formatted", "lines are improperly formatted");
    warn(tally.unreadable, "listed file could not be read", "listed files could not be read");
    warn(tally.mismatched, "computed checksum did NOT match", "computed checksums did NOT match");
    return tally.unreadable + tally.mismatched == 0 ? done : failed;
}

/// Treats every file that is named.
template <int (*treat)(const Arguments&, const char*)>
int run(const Arguments& arguments)
{
    int status = arguments.empty() ? treat(arguments, "-") : done;
    for (uint32_t i = 0; i < arguments.size() && status != misused; ++i)
        status = std::max(status, treat(arguments, arguments[i]));
    return status;
}

constexpr Option options[] = {
    {'c', "check", nullptr,
     "reads such lines from each LIST and tells of each file in them whether it has its\n"
     "digest: OK, FAILED or FAILED open or read. The status is 1 unless all have"},
    jsonOption,
    colorOption,
};
constexpr Form forms[] = {{"[FILE...]", "j", run<print>}, {"--check [LIST...]", "jC", run<checkList>}};

} // namespace

constinit const Command md5Command = {"md5", "prints and checks MD5 digests of files", help, forms, options};

} // namespace cutil
