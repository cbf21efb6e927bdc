#pragma once

#include <csignal>
#include <sys/resource.h>

namespace TarnoMirelo {

/// As on a disk that has room for so many bytes in a file: writing more fails.
class Room {
 public:
    explicit Room(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;
    ~Room() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
    rlimit before_{};
};

}  // namespace TarnoMirelo
