// Runs the programs as a user does: through the shell.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace support
{

struct Result {
    int status; ///< Of the last command; -1 when a signal ended the shell.
    std::string output;
};

/// The standard output of a command line; the standard error stream goes there too where the line says so.
inline Result run(const std::string& line)
{
    fflush(nullptr);
    FILE* pipe = popen(line.c_str(), "r");
    if (pipe == nullptr)
        return {-1, ""};
    std::string output;
    std::array<char, 4096> piece{};
    while (const std::size_t count = fread(piece.data(), 1, piece.size(), pipe))
        output.append(piece.data(), count);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// How to run a program of this build: under an emulator the emulator's name comes first.
inline const std::string cutil = CUTIL_COMMAND " ";
inline const std::string telemetry = TELEMETRY_COMMAND " ";

/// A name for a region or a file that no other test uses at the same time.
inline std::string uniqueName(const char* purpose)
{
    return std::string("koc-") + purpose + '-' + std::to_string(getpid());
}

} // namespace support
