// The prompt of the native build, with the editor of the system. What was typed is kept with the guest.
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <iostream>

#include "host/prompt.h"
#include "host/system.h"

namespace host {

struct Prompt::Editor {
  static unsigned char Complete(EditLine* line, std::wint_t);

  Completer completer;
  EditLine* line = el_init("velomira-host", stdin, stdout, stderr);
  History* history = history_init();
  HistEvent event{};
  std::string file = (DriveC() / "velomira-history").string();
};

// Puts in what all candidates have in common; shows them when that is nothing more.
unsigned char Prompt::Editor::Complete(EditLine* line, std::wint_t) {
  Editor* editor = nullptr;
  el_get(line, EL_CLIENTDATA, &editor);
  const LineInfo* now = el_line(line);
  const std::string text(now->buffer, now->cursor);
  const auto [start, words] = editor->completer(text);
  if (words.empty()) return CC_REFRESH_BEEP;
  std::string common = words[0];
  for (const std::string& word : words) common.erase(std::ranges::mismatch(common, word).in1, common.end());
  const std::string typed = text.substr(start);
  if (words.size() > 1 && typed.size() >= common.size()) {
    std::cout << "\n";
    for (const std::string& word : words) std::cout << "  " << word << "\n";
    std::cout << std::flush;
    return CC_REDISPLAY;
  }
  if (words.size() == 1 && !common.ends_with('/')) common += ' ';
  const auto isCharacter = [](char each) { return (each & 0xC0) != 0x80; };
  el_deletestr(line, static_cast<int>(std::ranges::count_if(typed, isCharacter)));
  el_insertstr(line, common.c_str());
  return CC_REFRESH;
}

namespace {

volatile std::sig_atomic_t cancelled = 0;

// Looks for a signal now and then: which thread gets it, and when, is anybody's guess.
int ReadCharacter(EditLine*, wchar_t* to) {
  std::mbstate_t state{};
  while (!cancelled && !Interrupted()) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char byte = 0;
    if (poll(&input, 1, 100) <= 0) continue;
    if (read(STDIN_FILENO, &byte, 1) != 1) return 0;
    const std::size_t taken = std::mbrtowc(to, &byte, 1, &state);
    if (taken <= 1) return 1;
    if (taken == static_cast<std::size_t>(-1)) state = {};  // no character: it is left out
  }
  return -1;
}

}  // namespace

Prompt::Prompt(Completer completer) : editor_(new Editor{std::move(completer)}) {
  Editor& editor = *editor_;
  std::setlocale(LC_CTYPE, "C.UTF-8");
  history(editor.history, &editor.event, H_SETSIZE, 1000);
  history(editor.history, &editor.event, H_SETUNIQUE, 1);
  history(editor.history, &editor.event, H_LOAD, editor.file.c_str());
  el_set(editor.line, EL_CLIENTDATA, &editor);
  el_set(
      editor.line, EL_PROMPT, +[](EditLine*) {
        static char prompt[] = "> ";
        return prompt;
      });
  el_set(editor.line, EL_EDITOR, "emacs");
  el_set(editor.line, EL_GETCFN, ReadCharacter);
  el_set(editor.line, EL_HIST, history, editor.history);
  // In wide characters, whose texts the editor takes as they are: it never frees copies.
  el_wset(editor.line, EL_ADDFN, L"complete", L"completes a word", Editor::Complete);
  el_set(editor.line, EL_BIND, "^I", "complete", nullptr);
  el_set(editor.line, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  Interrupted();  // its handlers first
  struct sigaction action {};
  action.sa_handler = [](int) { cancelled = 1; };
  sigaction(SIGINT, &action, nullptr);
}

Prompt::~Prompt() {
  history(editor_->history, &editor_->event, H_SAVE, editor_->file.c_str());
  history_end(editor_->history);
  el_end(editor_->line);
}

std::optional<std::string> Prompt::Read() {
  int length = 0;
  cancelled = 0;
  const char* line = el_gets(editor_->line, &length);
  if (!line && cancelled && !Interrupted()) {
    std::cout << "^C" << std::endl;
    el_reset(editor_->line);
    return "";
  }
  if (!line || length <= 0) return std::nullopt;
  std::string text(line, static_cast<std::size_t>(length));
  text.erase(std::min(text.find_last_not_of("\r\n") + 1, text.size()));
  if (!text.empty()) history(editor_->history, &editor_->event, H_ENTER, text.c_str());
  return text;
}

}  // namespace host
