// One pipe for all children: a message is a line shorter than PIPE_BUF, which arrives whole.
#include "trials/crew.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace trials {
namespace {

constexpr unsigned trialLimit = 60;  // seconds
constexpr std::uint64_t shownFailures = 40;

// Runs in the child and does not return. It ends as a program does, for a sanitizer to say what has leaked.
[[noreturn]] void Work(std::size_t job, int pipe, const std::function<void(std::size_t, Report&)>& work) {
  Report report(pipe);
  int status = 0;
  try {
    work(job, report);
  } catch (const std::exception& failure) {
    report.Fail(failure.what());
    status = 1;
  }
  std::exit(status);
}

struct Member {
  pid_t process = 0;
  std::string trial;
};

// One line of a child: its process, the kind of the message, and the text.
void Hear(const std::string& line, std::vector<Member>& members, Tally& tally) {
  std::size_t at = 0;
  const pid_t process = std::stoi(line, &at);
  const std::string text = line.substr(at + 3);
  switch (line[at + 1]) {
    case 'T':
      std::find_if(members.begin(), members.end(), [&](const Member& m) {
        return m.process == process;
      })->trial = text;
      break;
    case 'C':
      tally.figures[text.substr(text.find(' ') + 1)] += std::stoull(text);
      break;
    default:
      if (++tally.failures <= shownFailures) std::cerr << "FAILED " << text << "\n";
  }
}

std::string HowItDied(int status) {
  if (WIFEXITED(status)) return "ended with status " + std::to_string(WEXITSTATUS(status));
  if (WTERMSIG(status) == SIGALRM) return "did not end within " + std::to_string(trialLimit) + " s";
  return "died of signal " + std::to_string(WTERMSIG(status));
}

}  // namespace

void Report::Send(char kind, std::string text) const {
  std::replace(text.begin(), text.end(), '\n', ';');
  std::string line = std::to_string(getpid()) + " " + kind + " " + text;
  line.resize(std::min<std::size_t>(line.size(), PIPE_BUF - 1));
  line += '\n';
  if (write(pipe_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
}

void Report::Trial(const std::string& name) {
  trial_ = name;
  Send('T', name);
  alarm(trialLimit);
}

void Report::Count(const std::string& figure, std::uint64_t number) {
  Send('C', std::to_string(number) + " " + figure);
}

void Report::Fail(const std::string& what) {
  Send('F', trial_ + ": " + what);
}

Tally RunCrew(std::size_t jobs, const std::function<void(std::size_t, Report&)>& work) {
  int pipes[2];
  if (pipe(pipes) != 0) throw std::runtime_error("no pipe for the children");
  std::vector<Member> members(jobs);
  for (std::size_t job = 0; job < jobs; ++job) {
    std::cout << std::flush;
    const pid_t process = fork();
    if (process < 0) throw std::runtime_error("no process for a child");
    if (process == 0) {
      close(pipes[0]);
      Work(job, pipes[1], work);
    }
    members[job].process = process;
  }
  close(pipes[1]);

  Tally tally;
  FILE* messages = fdopen(pipes[0], "r");
  char* line = nullptr;
  std::size_t room = 0;
  for (ssize_t length = 0; (length = getline(&line, &room, messages)) > 0;) {
    Hear({line, static_cast<std::size_t>(length) - 1}, members, tally);
  }
  std::free(line);
  std::fclose(messages);
  for (const Member& member : members) {
    int status = 0;
    waitpid(member.process, &status, 0);
    if (status == 0) continue;
    ++tally.failures;
    std::cerr << "FAILED " << member.trial << ": the process " << HowItDied(status) << "\n";
  }
  return tally;
}

}  // namespace trials
