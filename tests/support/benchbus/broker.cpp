// The bench bus: carries CAN frames between the participants that connect to a Unix socket.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <linux/can.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/// Bytes read from a participant at a time, and the least that a queue takes before it is full.
constexpr std::size_t batchSize = 4096 * CAN_MTU;

using Clock = std::chrono::steady_clock;

/// How far a paced bus may catch up after the process was not scheduled in time.
constexpr Clock::duration maxLag = std::chrono::milliseconds(2);

class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { ::close(m_fd); }

    operator int() const { return m_fd; }

private:
    const int m_fd;
};

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

int checked(int result, const std::string &what)
{
    if (result < 0)
        fail(what);
    return result;
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

/// The bytes that wait for one participant, oldest first.
class Queue
{
public:
    std::size_t size() const { return m_bytes.size() - m_sent; }
    bool isEmpty() const { return size() == 0; }
    const char *data() const { return m_bytes.data() + m_sent; }

    void append(const char *bytes, std::size_t count)
    {
        // Closing the gap only once it is the larger part keeps the cost of a byte constant.
        if (m_sent > size()) {
            m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_sent));
            m_sent = 0;
        }
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    }

    void remove(std::size_t count)
    {
        m_sent += count;
        if (isEmpty())
            clear();
    }

    void clear()
    {
        m_bytes.clear();
        m_sent = 0;
    }

private:
    std::vector<char> m_bytes;
    std::size_t m_sent = 0;
};

class Participant
{
public:
    explicit Participant(int fd) : m_socket(fd) {}

    int socket() const { return m_socket; }
    bool isGone() const { return m_gone; }
    bool hasOutput() const { return !m_output.isEmpty(); }
    bool isFull() const { return m_output.size() >= batchSize; }

    /// The whole frames, at most \a limit bytes, among what has arrived; valid until the next call.
    std::pair<const char *, std::size_t> receive(std::size_t limit)
    {
        std::copy_n(m_input.data() + m_whole, m_rest, m_input.data());
        m_whole = 0;
        const auto count = ::recv(m_socket, m_input.data() + m_rest, limit - m_rest, 0);
        if (count == 0 || (count < 0 && !wouldBlock()))
            m_gone = true;
        if (count > 0) {
            const auto available = m_rest + static_cast<std::size_t>(count);
            m_rest = available % CAN_MTU;
            m_whole = available - m_rest;
        }
        return {m_input.data(), m_whole};
    }

    void deliver(const char *bytes, std::size_t count)
    {
        if (m_deaf)
            return;
        const bool idle = m_output.isEmpty();
        m_output.append(bytes, count);
        if (idle)
            sendOutput();
    }

    void sendOutput()
    {
        const auto count = ::send(m_socket, m_output.data(), m_output.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            m_output.remove(static_cast<std::size_t>(count));
        } else if (!wouldBlock()) {
            // It reads no more, but what it sent before may still wait to be read.
            m_deaf = true;
            m_output.clear();
        }
    }

private:
    const Descriptor m_socket;
    std::array<char, batchSize> m_input;
    std::size_t m_whole = 0; ///< bytes of m_input that were handed out as whole frames
    std::size_t m_rest = 0;  ///< bytes of a frame that is still incomplete, after them
    Queue m_output;
    bool m_deaf = false;
    bool m_gone = false;
};

class Bus
{
public:
    Bus(std::string path, long bitrate)
        : m_path(std::move(path)),
          m_bitrate(bitrate),
          m_listener(checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (m_path.size() >= sizeof address.sun_path)
            throw std::invalid_argument(m_path + ": path too long for a socket");
        m_path.copy(address.sun_path, m_path.size());
        checked(::bind(m_listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), m_path);
        m_bound = true;
        checked(::listen(m_listener, SOMAXCONN), "listen");
    }

    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    ~Bus()
    {
        if (m_bound)
            ::unlink(m_path.c_str());
    }

    void run(int stop)
    {
        std::vector<pollfd> polled;
        for (;;) {
            polled.assign({{stop, POLLIN, 0}, {m_listener, POLLIN, 0}});
            for (const Participant &participant : m_participants)
                polled.push_back(interestIn(participant));
            const timespec wait = busyFor();
            if (::ppoll(polled.data(), polled.size(), isBusy() ? &wait : nullptr, nullptr) < 0
                && errno != EINTR)
                fail("poll");
            if (polled[0].revents)
                return;
            serve(polled);
        }
    }

private:
    pollfd interestIn(const Participant &participant) const
    {
        short events = 0;
        if (participant.hasOutput())
            events |= POLLOUT;
        if (mayRead(participant))
            events |= POLLIN;
        // poll() reports a vanished peer even if nothing is asked for: leave it out altogether.
        return {events ? participant.socket() : -1, events, 0};
    }

    bool isBusy() const { return m_bitrate != 0 && m_idleAt > Clock::now(); }

    timespec busyFor() const
    {
        const auto wait = std::max(Clock::duration::zero(), m_idleAt - Clock::now());
        return {0, static_cast<long>(std::chrono::nanoseconds(wait).count())};
    }

    /// Keeps the bus busy for as long as a frame lasts on a wire, without stuff bits.
    void occupy(const char *frameBytes)
    {
        can_frame frame;
        std::memcpy(&frame, frameBytes, sizeof frame);
        const int bits = ((frame.can_id & CAN_EFF_FLAG) ? 67 : 47) + 8 * std::min<int>(frame.len, CAN_MAX_DLEN);
        m_idleAt = std::max(m_idleAt, Clock::now() - maxLag)
            + std::chrono::nanoseconds(1'000'000'000L * bits / m_bitrate);
    }

    /// A sender waits while the wire is busy or anyone else has no room for what it sends.
    bool mayRead(const Participant &sender) const
    {
        return !isBusy() && std::none_of(m_participants.begin(), m_participants.end(), [&](const Participant &other) {
            return &other != &sender && other.isFull();
        });
    }

    void serve(const std::vector<pollfd> &polled)
    {
        auto poll = polled.begin() + 2;
        for (Participant &participant : m_participants) {
            if (poll == polled.end())
                break;
            const short events = (poll++)->revents;
            if (events != 0 && participant.hasOutput())
                participant.sendOutput();
            if ((events & ~POLLOUT) != 0 && mayRead(participant))
                forward(participant);
        }
        acceptPending();
        m_participants.remove_if([](const Participant &participant) { return participant.isGone(); });
    }

    void forward(Participant &sender)
    {
        const auto [bytes, count] = sender.receive(m_bitrate != 0 ? CAN_MTU : batchSize);
        if (count == 0)
            return;
        if (m_bitrate != 0)
            occupy(bytes);
        // Whoever connected before these frames were sent is to have them.
        acceptPending();
        for (Participant &other : m_participants) {
            if (&other != &sender)
                other.deliver(bytes, count);
        }
    }

    void acceptPending()
    {
        int fd;
        while ((fd = ::accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0)
            m_participants.emplace_back(fd);
        if (!wouldBlock() && errno != ECONNABORTED)
            fail("accept");
    }

    const std::string m_path;
    const long m_bitrate; ///< bit/s, 0 for as fast as can be
    Clock::time_point m_idleAt{};
    const Descriptor m_listener;
    bool m_bound = false;
    std::list<Participant> m_participants;
};

int stopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    checked(::sigprocmask(SIG_BLOCK, &signals, nullptr), "sigprocmask");
    return checked(::signalfd(-1, &signals, SFD_CLOEXEC), "signalfd");
}

} // namespace

int main(int argc, char **argv)
{
    const bool paced = argc == 4 && std::strcmp(argv[1], "--bitrate") == 0;
    const long bitrate = paced ? std::strtol(argv[2], nullptr, 10) : 0;
    if ((argc != 2 && !paced) || (paced && (bitrate < 1000 || bitrate > 1'000'000'000))) {
        std::fputs("Usage: benchbus [--bitrate BITS_PER_SECOND] SOCKET_PATH\n", stderr);
        return 2;
    }
    const char *const path = argv[argc - 1];
    try {
        const Descriptor stop(stopSignals());
        Bus bus(path, bitrate);
        std::printf("benchbus: ready on %s\n", path);
        std::fflush(stdout);
        bus.run(stop);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "benchbus: %s\n", error.what());
        return 1;
    }
    return 0;
}
