// Forced into every shared source by scripts/check-portability.py: the Linux-only names of the C library
// become errors, so code built on both platforms cannot come to use them. The system headers that
// declare them come first, as they may be included anywhere later.
#pragma once
#pragma GCC system_header // poisoning names the headers already define is the point, not a warning

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#pragma GCC poison SOCK_CLOEXEC SOCK_NONBLOCK accept4 pipe2 ppoll dup3 eventfd signalfd
#pragma GCC poison epoll_create epoll_create1 epoll_ctl epoll_wait epoll_pwait
#pragma GCC poison timerfd_create timerfd_settime timerfd_gettime
