// cdb-netconf-relay: connects standard input and output with cdbd's NETCONF socket, as the program of
// OpenSSH's `Subsystem netconf`. Knows no NETCONF; runs as the user who has logged in.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>

namespace {

std::string SocketPath()
{
    const char* directory = std::getenv("SFLOW_RUN_DIR");
    return (directory == nullptr || *directory == '\0' ? std::string("/run/sflow-switch") : directory) +
           "/netconf.sock";
}

int Connect(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return -1;
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return -1;
}

/// One direction: reads when there is room, writes when there is something.
class Stream {
public:
    Stream(int from, int to) : m_from(from), m_to(to) {}

    [[nodiscard]] bool WantsRead() const { return !m_ended && m_begin == m_end; }
    [[nodiscard]] bool WantsWrite() const { return m_begin != m_end; }
    /// The source has ended and all of it has been written.
    [[nodiscard]] bool Done() const { return m_ended && m_begin == m_end; }

    void Read()
    {
        const ssize_t count = ::read(m_from, m_buffer.data(), m_buffer.size());
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        m_begin = 0;
        m_end = count > 0 ? static_cast<std::size_t>(count) : 0;
        m_ended = count <= 0;
    }

    /// False: the other side takes nothing any more.
    bool Write()
    {
        const ssize_t count = ::write(m_to, m_buffer.data() + m_begin, m_end - m_begin);
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        m_begin += static_cast<std::size_t>(count);
        return true;
    }

private:
    int m_from;
    int m_to;
    std::array<char, 65536> m_buffer{};
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_ended = false;
};

/// Until cdbd closes the session, or whoever started us goes.
int Relay(int server)
{
    constexpr short kGone = POLLHUP | POLLERR;
    Stream up(STDIN_FILENO, server);
    Stream down(server, STDOUT_FILENO);
    bool upOpen = true;
    while (!down.Done()) {
        std::array<pollfd, 4> waits{pollfd{up.WantsRead() ? STDIN_FILENO : -1, POLLIN, 0},
                                    pollfd{up.WantsWrite() ? server : -1, POLLOUT, 0},
                                    pollfd{down.WantsRead() ? server : -1, POLLIN, 0},
                                    pollfd{down.WantsWrite() ? STDOUT_FILENO : -1, POLLOUT, 0}};
        if (::poll(waits.data(), waits.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return EXIT_FAILURE;
        }
        if ((waits[0].revents & (POLLIN | kGone)) != 0) up.Read();
        if ((waits[1].revents & (POLLOUT | kGone)) != 0 && !up.Write()) return EXIT_FAILURE;
        if ((waits[2].revents & (POLLIN | kGone)) != 0) down.Read();
        if ((waits[3].revents & (POLLOUT | kGone)) != 0 && !down.Write()) return EXIT_FAILURE;
        if (upOpen && up.Done()) {
            // What was asked is still answered; then cdbd closes.
            ::shutdown(server, SHUT_WR);
            upOpen = false;
        }
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument == "--help") {
        std::cout << "usage: cdb-netconf-relay\n\nConnects standard input and output with netconf.sock in\n"
                     "$SFLOW_RUN_DIR (/run/sflow-switch): the program of sshd's \"Subsystem netconf\".\n";
        return EXIT_SUCCESS;
    }
    if (argc != 1) {
        std::cerr << "cdb-netconf-relay: takes no arguments\n";
        return EXIT_FAILURE;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const std::string path = SocketPath();
    const int server = Connect(path);
    if (server < 0) {
        std::cerr << "cdb-netconf-relay: can't connect to " << path << ": " << std::strerror(errno)
                  << "; is cdbd running?\n";
        return EXIT_FAILURE;
    }
    return Relay(server);
}
