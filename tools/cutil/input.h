// What a command reads: a file, or the standard input.
#pragma once

#include <cstddef>
#include <sys/types.h>

namespace cutil
{

class Input
{
public:
    /// "-" is the standard input.
    explicit Input(const char* path);
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input();

    /// As messages name it.
    const char* name() const { return name_; }
    bool isStandard() const { return standard_; }

    /// Takes up to @p size bytes. @return their number, 0 at the end, -1 on failure, also of the opening, with `errno`
    /// set
    ssize_t read(void* bytes, std::size_t size);

private:
    bool standard_;
    const char* name_;
    int descriptor_;
    int error_; // of the opening
};

} // namespace cutil
