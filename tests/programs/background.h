// Programs that run beside a test.
#pragma once

#include "network/messages.h"
#include "programs/command.h"
#include "support/process.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <string>

namespace support
{

/// A program in the background; both its streams go to a file.
class Background : Pinned
{
public:
    explicit Background(const std::string& command)
        : path_(testing::TempDir() + uniqueName("output") + '-' + std::to_string(++count_)),
          line_("exec " + command + " >" + path_ + " 2>&1"), process_([this] {
              // A test with threads may be forked while one of them holds the heap's lock.
              execl("/bin/sh", "sh", "-c", line_.c_str(), nullptr);
              return 127;
          })
    {
    }
    ~Background() { remove(path_.c_str()); }

    std::string output() const
    {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }
    bool says(const std::string& text) const
    {
        return comesTrue([&] { return output().find(text) != std::string::npos; });
    }
    /// Whether a text comes so many times from now on.
    bool saysMore(const std::string& text, int times) const
    {
        const auto count = [&] {
            const std::string said = output();
            int found = 0;
            for (std::size_t at = said.find(text); at != std::string::npos; at = said.find(text, at + 1))
                ++found;
            return found;
        };
        const int before = count();
        return comesTrue([&] { return count() >= before + times; });
    }
    void interrupt(int signal = SIGINT) const { ::kill(process_.id(), signal); }
    void kill() { process_.kill(); }
    int wait(std::chrono::milliseconds limit = 60s) { return process_.wait(limit); }
    std::string number() const { return std::to_string(process_.id()); }

private:
    static inline int count_ = 0;
    std::string path_;
    std::string line_;
    Process process_;
};

/// A TCP port that nobody uses, and neither the next one; below those that the system gives to connections.
inline uint16_t freePort()
{
    const auto isFree = [](int port) {
        TCPServerSocket server;
        return cu_TCPServerSocket_new(&server, static_cast<uint16_t>(port), CU_IP_ADDRESS_LOCAL, 1, false, nullptr) ==
               0;
    };
    int port = 20000 + getpid() % 5000 * 2;
    while (!isFree(port) || !isFree(port + 1))
        port += 2;
    return static_cast<uint16_t>(port);
}

} // namespace support
