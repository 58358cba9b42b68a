#include "input.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace cutil
{

Input::Input(const char* path)
    : standard_(path == std::string_view("-")), name_(standard_ ? "standard input" : path),
      descriptor_(standard_ ? STDIN_FILENO : open(path, O_RDONLY | O_CLOEXEC)), error_(errno)
{
}

Input::~Input()
{
    if (descriptor_ != -1 && !standard_)
        close(descriptor_);
}

ssize_t Input::read(void* bytes, std::size_t size)
{
    errno = error_;
    ssize_t count = -1;
    while (descriptor_ != -1 && (count = ::read(descriptor_, bytes, size)) == -1 && errno == EINTR) {
    }
    return count;
}

} // namespace cutil
