// An emulator of another processor has no ptrace, by which Wine's server reads and writes the memory of
// programs. Loaded before the C library of the emulated system, this says of each thread that it has stopped,
// though it runs on, and goes through /proc; who waits for an exchange with the driver does not touch its
// buffers meanwhile.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

static pid_t attached;  // the server has one thread

static int OpenMemory(pid_t thread) {
  char path[32];
  snprintf(path, sizeof path, "/proc/%d/mem", thread);
  return open(path, O_RDWR | O_CLOEXEC);
}

long ptrace(enum __ptrace_request request, ...) {
  va_list arguments;
  va_start(arguments, request);
  const pid_t thread = va_arg(arguments, pid_t);
  const off_t address = (off_t)va_arg(arguments, void*);
  long word = (long)va_arg(arguments, void*);
  va_end(arguments);
  if (request == PTRACE_ATTACH) {
    if (kill(thread, 0) != 0) return -1;
    attached = thread;
    return 0;
  }
  if (request == PTRACE_DETACH || request == PTRACE_CONT) return 0;
  if (request != PTRACE_PEEKDATA && request != PTRACE_POKEDATA) return errno = ENOSYS, -1;

  const int memory = OpenMemory(thread);
  if (memory < 0) return -1;
  const ssize_t moved = request == PTRACE_PEEKDATA ? pread(memory, &word, sizeof word, address)
                                                   : pwrite(memory, &word, sizeof word, address);
  close(memory);
  if (moved != sizeof word) return errno = EIO, -1;
  return errno = 0, request == PTRACE_PEEKDATA ? word : 0;
}

pid_t waitpid(pid_t process, int* status, int options) {
  if (process != attached || process == 0) return wait4(process, status, options, NULL);
  attached = 0;
  *status = SIGSTOP << 8 | 0x7F;
  return process;
}
