// The virtual bus: carries CAN frames between the participants that connect to a Unix socket.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include <linux/can.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/// Bytes read from a participant at once, and the least that waits for one before it is full.
constexpr std::size_t batchSize = 4096 * CAN_MTU;

int checked(int result, const char *what)
{
    if (result < 0) {
        std::fprintf(stderr, "virtualbus: %s: %s\n", what, std::strerror(errno));
        std::exit(1);
    }
    return result;
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

class Participant
{
public:
    explicit Participant(int fd)
        : m_socket(fd)
    {
    }
    Participant(const Participant &) = delete;
    Participant &operator=(const Participant &) = delete;
    ~Participant() { ::close(m_socket); }

    int socket() const { return m_socket; }
    bool isGone() const { return m_gone; }
    bool hasOutput() const { return !m_output.empty(); }
    bool isFull() const { return m_output.size() >= batchSize; }

    /// The complete frames that were received.
    std::string receive()
    {
        std::array<char, batchSize> buffer;
        const auto count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
        m_gone = count == 0 || (count < 0 && !wouldBlock());
        if (count > 0)
            m_input.append(buffer.data(), std::size_t(count));
        const std::size_t whole = m_input.size() - m_input.size() % CAN_MTU;
        std::string frames = m_input.substr(0, whole);
        m_input.erase(0, whole);
        return frames;
    }

    void deliver(const std::string &frames)
    {
        const bool idle = m_output.empty();
        m_output += frames;
        if (idle)
            sendOutput();
    }

    void sendOutput()
    {
        const auto count = ::send(m_socket, m_output.data(), m_output.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            m_output.erase(0, std::size_t(count));
        } else if (!wouldBlock()) {
            // It does not read any more, but its last frames may still be unread.
            m_output.clear();
        }
    }

private:
    const int m_socket;
    std::string m_input; ///< a frame that is still incomplete
    std::string m_output;
    bool m_gone = false;
};

class Bus
{
public:
    explicit Bus(const char *path)
        : m_listener(
            checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        checked(::bind(m_listener, reinterpret_cast<const sockaddr *>(&address), sizeof address),
                path);
        checked(::listen(m_listener, SOMAXCONN), "listen");
    }

    [[noreturn]] void run()
    {
        std::vector<pollfd> polled;
        for (;;) {
            polled.assign({{m_listener, POLLIN, 0}});
            for (const Participant &participant : m_participants)
                polled.push_back(pollEntry(participant));
            if (::poll(polled.data(), polled.size(), -1) > 0)
                serve(polled);
        }
    }

private:
    pollfd pollEntry(const Participant &participant) const
    {
        short events = participant.hasOutput() ? POLLOUT : 0;
        if (mayRead(participant))
            events |= POLLIN;
        // poll() reports a closed peer even without events: leave it out.
        return {events ? participant.socket() : -1, events, 0};
    }

    /// A sender waits while any other participant has no room.
    bool mayRead(const Participant &sender) const
    {
        return std::none_of(
            m_participants.begin(), m_participants.end(),
            [&](const Participant &other) { return &other != &sender && other.isFull(); });
    }

    void serve(const std::vector<pollfd> &polled)
    {
        auto participant = m_participants.begin();
        for (auto poll = polled.begin() + 1; poll != polled.end(); ++poll, ++participant) {
            if (poll->revents != 0 && participant->hasOutput())
                participant->sendOutput();
            if ((poll->revents & ~POLLOUT) != 0 && mayRead(*participant))
                forward(*participant);
        }
        acceptPending();
        m_participants.remove_if([](const Participant &gone) { return gone.isGone(); });
    }

    void forward(Participant &sender)
    {
        const std::string frames = sender.receive();
        // Participants that connected before these frames were sent must get them.
        acceptPending();
        for (Participant &other : m_participants) {
            if (&other != &sender)
                other.deliver(frames);
        }
    }

    void acceptPending()
    {
        int fd;
        while ((fd = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0)
            m_participants.emplace_back(fd);
    }

    const int m_listener;
    std::list<Participant> m_participants;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2 || std::strlen(argv[1]) >= sizeof(sockaddr_un::sun_path)) {
        std::fputs("Usage: virtualbus SOCKET_PATH\n", stderr);
        return 2;
    }
    Bus bus(argv[1]);
    std::printf("virtualbus: ready on %s\n", argv[1]);
    std::fflush(stdout);
    bus.run();
}
