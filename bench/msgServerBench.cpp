// Requests that an application echoes to its clients over loopback: from one client and many, one at a time and many in
// flight, with silent clients beside; and the heap that silent clients take. Beside a bare epoll loop, which has no
// application apart from it and so is the ceiling, ZeroMQ (ROUTER and DEALER) and nng (PAIR version 1, polyamorous).
#include <cUtil/network/ipAddress.h>
#include <cUtil/network/msgClient.h>
#include <cUtil/network/msgServer.h>

#include <benchmark/benchmark.h>
#include <nng/nng.h>
#include <nng/protocol/pair1/pair.h>
#include <zmq.h>

#include "support/processors.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <malloc.h>
#include <memory>
#include <netinet/tcp.h>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

void must(bool succeeded)
{
    if (!succeeded)
        abort();
}

sockaddr_in loopback(uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int listenAnywhere(uint16_t& port)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    must(bind(listener, generic, size) == 0 && listen(listener, 4096) == 0 &&
         getsockname(listener, generic, &size) == 0);
    port = ntohs(address.sin_port);
    return listener;
}

uint16_t freePort()
{
    uint16_t port = 0;
    close(listenAnywhere(port));
    return port;
}

// A client that speaks no protocol.
class Silent
{
public:
    explicit Silent(uint16_t port) : descriptor_(socket(AF_INET, SOCK_STREAM, 0))
    {
        const sockaddr_in address = loopback(port);
        must(connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
        const int on = 1;
        setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    Silent(const Silent&) = delete;
    Silent& operator=(const Silent&) = delete;
    ~Silent() { close(descriptor_); }

protected:
    int descriptor_;
};

struct Ours {
    class Server
    {
    public:
        Server()
        {
            must(cu_MSGServer_new(&server_, INADDR_LOOPBACK, port, nullptr) == 0);
            echo_ = std::thread([this] {
                cu_Message* message = nullptr;
                must(cu_Message_new(&message, 65536, nullptr) == 0);
                uint32_t endpoint = 0;
                uint32_t size = 1;
                while (size != 0) {
                    must(cu_MSGServer_receive(server_, &endpoint, message) == 0);
                    must(cu_MSGServer_send(server_, endpoint, message) == 0);
                    cu_Message_getSize(message, &size);
                }
                cu_Message_delete(&message);
            });
        }
        ~Server()
        {
            Client(*this).send("");
            echo_.join();
            cu_MSGServer_delete(&server_);
        }

        const uint16_t port = freePort();

    private:
        cu_MSGServer* server_ = nullptr;
        std::thread echo_;
    };

    class Client
    {
    public:
        explicit Client(const Server& server)
        {
            must(cu_MSGClient_new(&client_, INADDR_LOOPBACK, server.port, nullptr) == 0);
            must(cu_Message_new(&message_, 65536, nullptr) == 0);
        }
        ~Client()
        {
            cu_MSGClient_delete(&client_);
            cu_Message_delete(&message_);
        }

        void send(const std::string& bytes)
        {
            cu_Message_resize(message_, 0);
            cu_Message_seek(message_, 0);
            if (!bytes.empty())
                cu_Message_write(message_, bytes.data(), static_cast<uint32_t>(bytes.size()));
            must(cu_MSGClient_send(client_, message_) == 0);
        }
        void receive(std::size_t size)
        {
            uint32_t received = 0;
            must(cu_MSGClient_receive(client_, message_) == 0);
            cu_Message_getSize(message_, &received);
            must(received == size);
        }

    private:
        cu_MSGClient* client_ = nullptr;
        cu_Message* message_ = nullptr;
    };
};

struct Epoll {
    class Server
    {
    public:
        Server() : listener_(listenAnywhere(port)), epoll_(epoll_create1(0)), echo_([this] { serve(); }) {}
        ~Server()
        {
            ends_ = true;
            {
                const Silent last(port);
                echo_.join();
            }
            close(epoll_);
            close(listener_);
        }

        uint16_t port = 0;

    private:
        void add(int descriptor) const
        {
            epoll_event event = {};
            event.events = EPOLLIN;
            event.data.fd = descriptor;
            epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event);
        }

        void serve()
        {
            add(listener_);
            std::vector<char> buffer(65536);
            while (!ends_) {
                epoll_event events[128];
                const int count = epoll_wait(epoll_, events, 128, -1);
                for (int i = 0; i < count; ++i) {
                    const int descriptor = events[i].data.fd;
                    if (descriptor == listener_) {
                        const int accepted = accept(listener_, nullptr, nullptr);
                        const int on = 1;
                        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
                        add(accepted);
                        continue;
                    }
                    const ssize_t got = recv(descriptor, buffer.data(), buffer.size(), 0);
                    if (got <= 0)
                        close(descriptor);
                    else
                        send(descriptor, buffer.data(), static_cast<std::size_t>(got), MSG_NOSIGNAL);
                }
            }
        }

        int listener_;
        int epoll_;
        std::atomic<bool> ends_ = false;
        std::thread echo_;
    };

    class Client : Silent
    {
    public:
        explicit Client(const Server& server) : Silent(server.port), buffer_(65536) {}

        void send(const std::string& bytes) { must(::send(descriptor_, bytes.data(), bytes.size(), 0) > 0); }
        void receive(std::size_t size) { must(recv(descriptor_, buffer_.data(), size, MSG_WAITALL) == ssize_t(size)); }

    private:
        std::vector<char> buffer_;
    };
};

struct ZeroMQ {
    static std::string addressOf(uint16_t port) { return "tcp://127.0.0.1:" + std::to_string(port); }

    class Server
    {
    public:
        Server()
        {
            zmq_ctx_set(context, ZMQ_MAX_SOCKETS, 20'000);
            void* socket = zmq_socket(context, ZMQ_ROUTER);
            const int backlog = 4096;
            zmq_setsockopt(socket, ZMQ_BACKLOG, &backlog, sizeof(backlog));
            must(zmq_bind(socket, addressOf(port).c_str()) == 0);
            echo_ = std::thread([socket] {
                zmq_msg_t id;
                zmq_msg_t body;
                for (std::size_t size = 1; size != 0;) {
                    zmq_msg_init(&id);
                    zmq_msg_init(&body);
                    zmq_msg_recv(&id, socket, 0);
                    zmq_msg_recv(&body, socket, 0);
                    size = zmq_msg_size(&body);
                    zmq_msg_send(&id, socket, ZMQ_SNDMORE);
                    zmq_msg_send(&body, socket, 0);
                }
                zmq_close(socket);
            });
        }
        ~Server()
        {
            {
                Client last(*this);
                last.send("");
                last.receive(0);
            }
            echo_.join();
            zmq_ctx_term(context);
        }

        const uint16_t port = freePort();
        void* context = zmq_ctx_new();

    private:
        std::thread echo_;
    };

    class Client
    {
    public:
        explicit Client(const Server& server) : socket_(zmq_socket(server.context, ZMQ_DEALER)), buffer_(65536)
        {
            const int none = 0;
            zmq_setsockopt(socket_, ZMQ_LINGER, &none, sizeof(none));
            must(zmq_connect(socket_, addressOf(server.port).c_str()) == 0);
        }
        ~Client() { zmq_close(socket_); }

        void send(const std::string& bytes) { must(zmq_send(socket_, bytes.data(), bytes.size(), 0) != -1); }
        void receive(std::size_t size) { must(zmq_recv(socket_, buffer_.data(), buffer_.size(), 0) == int(size)); }

    private:
        void* socket_;
        std::vector<char> buffer_;
    };
};

struct Nng {
    class Server
    {
    public:
        Server()
        {
            must(nng_pair1_open_poly(&socket_) == 0);
            must(nng_listen(socket_, ZeroMQ::addressOf(port).c_str(), nullptr, 0) == 0);
            echo_ = std::thread([this] {
                nng_msg* message = nullptr;
                while (nng_recvmsg(socket_, &message, 0) == 0)
                    if (nng_sendmsg(socket_, message, 0) != 0)
                        nng_msg_free(message);
            });
        }
        ~Server()
        {
            nng_close(socket_);
            echo_.join();
        }

        const uint16_t port = freePort();

    private:
        nng_socket socket_ = NNG_SOCKET_INITIALIZER;
        std::thread echo_;
    };

    class Client
    {
    public:
        explicit Client(const Server& server) : buffer_(65536)
        {
            must(nng_pair1_open(&socket_) == 0);
            must(nng_socket_set_int(socket_, NNG_OPT_SENDBUF, 64) == 0);
            must(nng_socket_set_int(socket_, NNG_OPT_RECVBUF, 64) == 0);
            must(nng_dial(socket_, ZeroMQ::addressOf(server.port).c_str(), nullptr, 0) == 0);
        }
        ~Client() { nng_close(socket_); }

        void send(const std::string& bytes)
        {
            must(nng_send(socket_, const_cast<char*>(bytes.data()), bytes.size(), 0) == 0);
        }
        void receive(std::size_t size)
        {
            std::size_t got = buffer_.size();
            must(nng_recv(socket_, buffer_.data(), &got, 0) == 0 && got == size);
        }

    private:
        nng_socket socket_ = NNG_SOCKET_INITIALIZER;
        std::vector<char> buffer_;
    };
};

void raiseDescriptorLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// Bytes, clients, requests in flight from each, silent clients beside.
template <typename Peer>
void echo(benchmark::State& state)
{
    raiseDescriptorLimit();
    const std::string request(static_cast<std::size_t>(state.range(0)), 'x');
    const auto clientCount = static_cast<std::size_t>(state.range(1));
    const int64_t inFlight = state.range(2);
    typename Peer::Server server;
    std::vector<std::unique_ptr<Silent>> silent;
    for (int64_t i = 0; i < state.range(3); ++i)
        silent.push_back(std::make_unique<Silent>(server.port));
    std::vector<std::unique_ptr<typename Peer::Client>> clients;
    for (std::size_t i = 0; i < clientCount; ++i)
        clients.push_back(std::make_unique<typename Peer::Client>(server));
    std::vector<double> times;
    const auto round = [&] {
        for (const auto& client : clients)
            for (int64_t i = 0; i < inFlight; ++i)
                client->send(request);
        for (const auto& client : clients)
            for (int64_t i = 0; i < inFlight; ++i)
                client->receive(request.size());
    };
    round();
    for (auto _ : state) {
        const int64_t start = bench::nanoSeconds();
        round();
        times.push_back(static_cast<double>(bench::nanoSeconds() - start) / 1000);
    }
    std::ranges::sort(times);
    state.counters["median_us"] = times[times.size() / 2];
    state.counters["99th_us"] = times[times.size() * 99 / 100];
    state.SetItemsProcessed(state.iterations() * state.range(1) * inFlight);
}

// The heap that silent clients take.
template <typename Peer>
void silent(benchmark::State& state)
{
    raiseDescriptorLimit();
    for (auto _ : state) {
        typename Peer::Server server;
        std::vector<std::unique_ptr<Silent>> clients(static_cast<std::size_t>(state.range(0)));
        const std::size_t before = mallinfo2().uordblks;
        const std::size_t own = clients.size() * 32; // the blocks of the clients themselves
        for (auto& client : clients)
            client = std::make_unique<Silent>(server.port);
        typename Peer::Client last(server); // is answered after all others have been accepted
        last.send("x");
        last.receive(1);
        state.counters["bytes_each"] =
            static_cast<double>(mallinfo2().uordblks - before - own) / static_cast<double>(clients.size());
    }
}

void cases(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"bytes", "clients", "inFlight", "silent"})->UseRealTime()->MinTime(0.5);
    for (const int64_t bytes : {64, 4096})
        for (const int64_t clients : {1, 64, 1000})
            benchmark->Args({bytes, clients, 1, 0});
    for (const int64_t bytes : {64, 4096})
        benchmark->Args({bytes, 1, 32, 0});
    benchmark->Args({64, 1, 1, 1000});
}

BENCHMARK_TEMPLATE(echo, Ours)->Name("echo/cUtil")->Apply(cases);
BENCHMARK_TEMPLATE(echo, Epoll)->Name("echo/epoll")->Apply(cases);
BENCHMARK_TEMPLATE(echo, ZeroMQ)->Name("echo/ZeroMQ")->Apply(cases);
BENCHMARK_TEMPLATE(echo, Nng)->Name("echo/nng")->Apply(cases);
BENCHMARK_TEMPLATE(silent, Ours)->Name("silent/cUtil")->Arg(1000)->Arg(10000)->Iterations(1);
BENCHMARK_TEMPLATE(silent, ZeroMQ)->Name("silent/ZeroMQ")->Arg(1000)->Arg(10000)->Iterations(1);
BENCHMARK_TEMPLATE(silent, Nng)->Name("silent/nng")->Arg(1000)->Arg(10000)->Iterations(1);

} // namespace
