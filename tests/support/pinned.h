#pragma once

namespace support
{

/// A base of what stays where it was made.
struct Pinned {
    Pinned() = default;
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;
};

} // namespace support
