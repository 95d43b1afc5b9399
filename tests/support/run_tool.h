// Runs a program of the build as a child process and collects what it did: exit status,
// standard output and standard error, with a given standard input and environment additions.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace nus_test {

struct RunResult {
    int status = -1;  // exit status, or 128 + signal number
    std::string out;
    std::string err;
};

// `program` with `args`; `input` is written to its standard input; `env` holds NAME=VALUE
// entries set (or, with an empty VALUE after "NAME=", emptied) in the child only.
inline RunResult run_program(const std::string &program, const std::vector<std::string> &args,
                             const std::string &input = {},
                             const std::vector<std::string> &env = {}) {
    RunResult result;
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return result;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
        for (const std::string &e : env) putenv(const_cast<char *>(e.c_str()));
        std::vector<char *> argv;
        argv.push_back(const_cast<char *>(program.c_str()));
        for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    size_t written = 0;
    if (input.empty()) {
        close(in[1]);
        in[1] = -1;
    }
    pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
    int open_count = 2;
    while (open_count > 0 || fds[2].fd >= 0) {
        if (poll(fds, 3, -1) < 0 && errno != EINTR) break;
        char buffer[65536];
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
        }
        if (fds[2].fd >= 0 && fds[2].revents != 0) {
            const ssize_t n = write(fds[2].fd, input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<size_t>(n);
            if (n < 0 && errno != EAGAIN && errno != EINTR) written = input.size();
            if (written == input.size()) {
                close(fds[2].fd);
                fds[2].fd = -1;
            }
        }
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    return result;
}

} // namespace nus_test
