// Owner of a file descriptor.
#pragma once

#include <unistd.h>

// Keeps a descriptor for the life of this object.
class fd_owner {
public:
    explicit fd_owner(int fd) : fd_(fd) {}
    ~fd_owner()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    fd_owner(const fd_owner &) = delete;
    fd_owner &operator=(const fd_owner &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};
