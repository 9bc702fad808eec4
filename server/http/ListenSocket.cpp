#include "http/ListenSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace vocle::server {

namespace {

struct AddressList {
    addrinfo* head = nullptr;
    ~AddressList() {
        if (head) freeaddrinfo(head);
    }
};

bool resolve(const std::string& host, int port, bool passive, AddressList& out) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    return getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &out.head) == 0 && out.head;
}

std::string where(const std::string& host, int port) {
    return host + ":" + std::to_string(port);
}

}  // namespace

std::string ListenSocket::portInUseMessage(const std::string& host, int port) {
    return "Cannot listen on " + where(host, port) + ": the port is in use (another server is listening there)";
}

bool ListenSocket::hasLiveListener(const std::string& host, int port) {
    AddressList addresses;
    if (!resolve(host, port, false, addresses)) return false;
    for (addrinfo* a = addresses.head; a; a = a->ai_next) {
        const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) continue;
        bool live = false;
        if (::connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
            live = true;
        } else if (errno == EINPROGRESS) {
            // A listener completes the handshake at once on a local address; a second is generous.
            pollfd p{fd, POLLOUT, 0};
            if (poll(&p, 1, 1000) == 1) {
                int error = 0;
                socklen_t length = sizeof error;
                live = getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
            }
        }
        close(fd);
        if (live) return true;
    }
    return false;
}

void ListenSocket::applyOptions(int fd) {
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

int ListenSocket::open(const std::string& host, int port, int& boundPort) {
    if (port != 0 && hasLiveListener(host, port)) throw std::runtime_error(portInUseMessage(host, port));
    AddressList addresses;
    if (!resolve(host, port, true, addresses))
        throw std::runtime_error("Cannot listen on " + where(host, port) + ": unknown address");
    std::string reason = "no usable address";
    for (addrinfo* a = addresses.head; a; a = a->ai_next) {
        const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) {
            reason = std::strerror(errno);
            continue;
        }
        applyOptions(fd);
        if (::bind(fd, a->ai_addr, a->ai_addrlen) != 0 || ::listen(fd, SOMAXCONN) != 0) {
            const int error = errno;
            close(fd);
            if (error == EADDRINUSE) throw std::runtime_error(portInUseMessage(host, port));
            reason = std::strerror(error);
            continue;
        }
        sockaddr_storage bound{};
        socklen_t length = sizeof bound;
        getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
        boundPort = bound.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port)
                                                : ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
        return fd;
    }
    throw std::runtime_error("Cannot listen on " + where(host, port) + ": " + reason);
}

}  // namespace vocle::server
