// The virtual bus: carries CAN frames between the participants that connect to a Unix socket.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <linux/can.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/// Bytes read from a participant at once, and the least size at which a queue is full.
constexpr std::size_t batchSize = 4096 * CAN_MTU;

class Descriptor
{
public:
    explicit Descriptor(int fd)
        : m_fd(fd)
    {
    }
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

/// When the next frame may pass on a bus with a bit rate.
class Pace
{
public:
    using Clock = std::chrono::steady_clock;

    /// 0: no limit.
    explicit Pace(double bitRate)
        : m_bitRate(bitRate)
    {
    }

    bool isLimited() const { return m_bitRate > 0; }
    bool isBusy() const { return isLimited() && Clock::now() < m_busyUntil; }

    /// How long to wait for an event; nothing: without limit.
    std::optional<Clock::duration> patience() const
    {
        if (!isLimited() || m_idle)
            return std::nullopt;
        return std::max(m_busyUntil - Clock::now(), Clock::duration::zero());
    }

    /// The bus was free and no frame waited.
    void setIdle() { m_idle = true; }

    void pass(const can_frame &frame)
    {
        const auto now = Clock::now();
        // A frame that waited follows the one before it directly, however late this process woke
        // up.
        const bool follows = !m_idle && now - m_busyUntil < std::chrono::milliseconds(5);
        const std::chrono::duration<double> time(bitsOf(frame) / m_bitRate);
        m_busyUntil = (follows ? m_busyUntil : now)
            + std::chrono::duration_cast<Clock::duration>(time);
        m_idle = false;
    }

private:
    /// With the interframe space, without stuff bits.
    static double bitsOf(const can_frame &frame)
    {
        const int overhead = frame.can_id & CAN_EFF_FLAG ? 67 : 47;
        const int bytes = frame.can_id & CAN_RTR_FLAG ? 0
                                                      : std::min<int>(frame.can_dlc, CAN_MAX_DLEN);
        return overhead + 8 * bytes;
    }

    const double m_bitRate;
    Clock::time_point m_busyUntil;
    bool m_idle = true;
};

/// The bytes to send to one participant, oldest first.
class Queue
{
public:
    std::size_t size() const { return m_bytes.size() - m_sent; }
    bool isEmpty() const { return size() == 0; }
    const char *data() const { return m_bytes.data() + m_sent; }

    void append(const char *bytes, std::size_t count)
    {
        // Removes sent bytes only when they are the larger part: constant cost per byte.
        if (m_sent > size()) {
            m_bytes.erase(m_bytes.begin(), m_bytes.begin() + std::ptrdiff_t(m_sent));
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
    explicit Participant(int fd)
        : m_socket(fd)
    {
    }

    int socket() const { return m_socket; }
    bool isGone() const { return m_gone; }
    bool hasOutput() const { return !m_output.isEmpty(); }
    bool isFull() const { return m_output.size() >= batchSize; }

    /// The complete frames in at most limit received bytes; valid until the next call.
    std::pair<const char *, std::size_t> receive(std::size_t limit)
    {
        std::copy_n(m_input.data() + m_whole, m_rest, m_input.data());
        m_whole = 0;
        const auto count = ::recv(m_socket, m_input.data() + m_rest, limit - m_rest, 0);
        if (count == 0 || (count < 0 && !wouldBlock()))
            m_gone = true;
        if (count > 0) {
            const auto available = m_rest + std::size_t(count);
            m_rest = available % CAN_MTU;
            m_whole = available - m_rest;
        }
        return {m_input.data(), m_whole};
    }

    void deliver(const char *bytes, std::size_t count)
    {
        const bool idle = m_output.isEmpty();
        m_output.append(bytes, count);
        if (idle)
            sendOutput();
    }

    void sendOutput()
    {
        const auto count = ::send(m_socket, m_output.data(), m_output.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            m_output.remove(std::size_t(count));
        } else if (!wouldBlock()) {
            // It does not read any more, but its last frames may still be unread.
            m_output.clear();
        }
    }

private:
    const Descriptor m_socket;
    std::array<char, batchSize> m_input{};
    std::size_t m_whole = 0; ///< bytes of m_input that were returned as complete frames
    std::size_t m_rest = 0;  ///< bytes of a frame that is still incomplete, after them
    Queue m_output;
    bool m_gone = false;
};

class Bus
{
public:
    Bus(std::string path, double bitRate)
        : m_path(std::move(path)),
          m_pace(bitRate),
          m_listener(
              checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (m_path.size() >= sizeof address.sun_path)
            throw std::invalid_argument(m_path + ": path too long for a socket");
        m_path.copy(address.sun_path, m_path.size());
        checked(::bind(m_listener, reinterpret_cast<const sockaddr *>(&address), sizeof address),
                m_path);
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
            const bool busy = m_pace.isBusy();
            for (const Participant &participant : m_participants)
                polled.push_back(pollEntry(participant, busy));
            const int ready = wait(polled);
            if (polled[0].revents)
                return;
            if (ready > 0)
                serve(polled);
            else if (!busy)
                m_pace.setIdle();
        }
    }

private:
    int wait(std::vector<pollfd> &polled) const
    {
        timespec time{};
        const auto patience = m_pace.patience();
        if (patience)
            time.tv_nsec = std::chrono::nanoseconds(*patience).count();
        return checked(::ppoll(polled.data(), polled.size(), patience ? &time : nullptr, nullptr),
                       "poll");
    }

    pollfd pollEntry(const Participant &participant, bool busy) const
    {
        short events = 0;
        if (participant.hasOutput())
            events |= POLLOUT;
        if (!busy && mayRead(participant))
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
        auto served = m_participants.end();
        auto participant = m_participants.begin();
        for (auto poll = polled.begin() + 2; poll != polled.end(); ++poll, ++participant) {
            if (poll->revents != 0 && participant->hasOutput())
                participant->sendOutput();
            if ((poll->revents & ~POLLOUT) != 0 && !m_pace.isBusy() && mayRead(*participant)) {
                forward(*participant);
                served = participant;
            }
        }
        // With a bit rate, frames pass one by one: the others go first.
        if (served != m_participants.end())
            m_participants.splice(m_participants.end(), m_participants, served);
        acceptPending();
        m_participants.remove_if([](const Participant &gone) { return gone.isGone(); });
    }

    void forward(Participant &sender)
    {
        const auto [bytes, count] = sender.receive(m_pace.isLimited() ? CAN_MTU : batchSize);
        if (count == 0)
            return;
        if (m_pace.isLimited()) {
            can_frame frame;
            std::memcpy(&frame, bytes, sizeof frame);
            m_pace.pass(frame);
        }
        // Participants that connected before these frames were sent must get them.
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
    Pace m_pace;
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
    double bitRate = 0;
    if (argc == 4 && std::strcmp(argv[1], "--bitrate") == 0)
        bitRate = std::strtod(argv[2], nullptr);
    if (argc != 2 && !(bitRate >= 10'000)) {
        std::fputs("Usage: virtualbus [--bitrate BITS_PER_SECOND] SOCKET_PATH\n"
                   "The slowest bit rate is 10000.\n",
                   stderr);
        return 2;
    }
    try {
        // Frames follow each other in about 100 us; by default timers are 50 us late.
        ::prctl(PR_SET_TIMERSLACK, 1UL);
        const Descriptor stop(stopSignals());
        const char *path = argv[argc - 1];
        Bus bus(path, bitRate);
        std::printf("virtualbus: ready on %s\n", path);
        std::fflush(stdout);
        bus.run(stop);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "virtualbus: %s\n", error.what());
        return 1;
    }
    return 0;
}
