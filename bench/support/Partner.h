/// A second process that changes values of the same store when it is asked to.
#ifndef VQREG_BENCH_PARTNER_H
#define VQREG_BENCH_PARTNER_H

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <functional>

#include "support/System.h"

namespace bench {

class Partner {
public:
    using Setter = std::function<void(std::size_t value, std::uint32_t number)>;

    // `open` is called in the new process at the first order and returns what sets a value there.
    explicit Partner(const std::function<Setter()>& open) {
        require(pipe2(m_orders, O_CLOEXEC) == 0 && pipe2(m_replies, O_CLOEXEC) == 0, "no pipe");
        m_process = fork();
        require(m_process >= 0, "no process");
        if (m_process == 0) {
            close(m_orders[1]);
            close(m_replies[0]);
            _exit(obey(open));
        }
        close(m_orders[0]);
        close(m_replies[1]);
    }
    ~Partner() {
        close(m_orders[1]);
        close(m_replies[0]);
        waitpid(m_process, nullptr, 0);
    }
    Partner(const Partner&) = delete;
    Partner& operator=(const Partner&) = delete;

    // Returns when the other process has done so.
    void set(std::size_t value, std::uint32_t number) {
        const Order order = {value, number};
        require(write(m_orders[1], &order, sizeof order) == sizeof order, "the partner has gone");
        char done = 0;
        require(read(m_replies[0], &done, 1) == 1, "the partner has failed");
    }

private:
    struct Order {
        std::uint64_t value;
        std::uint64_t number;
    };

    int obey(const std::function<Setter()>& open) {
        try {
            Setter set;
            Order order = {};
            while (read(m_orders[0], &order, sizeof order) == sizeof order) {
                if (!set) {
                    set = open();
                }
                set(order.value, static_cast<std::uint32_t>(order.number));
                require(write(m_replies[1], "", 1) == 1, "nobody listens");
            }
            return 0;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "partner: %s\n", error.what());
            return 1;
        }
    }

    int m_orders[2] = {};
    int m_replies[2] = {};
    pid_t m_process = -1;
};

}  // namespace bench

#endif  // VQREG_BENCH_PARTNER_H
