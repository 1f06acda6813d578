// The commands that play the host, and the options that several commands share.
#include "host/commands.h"

#include <algorithm>
#include <iostream>

#include "guest/text.h"
#include "host/pictures.h"
#include "host/prepare.h"
#include "host/report.h"
#include "host/shell.h"
#include "host/system.h"
#include "host/trace.h"

namespace host {
namespace {

SessionOptions SessionOf(const Options& options) {
  return {options.module.empty() ? DefaultModule() : std::filesystem::absolute(PathOf(options.module)),
          std::chrono::milliseconds(static_cast<std::int64_t>(options.seconds * 1000))};
}

// Opens the guest and plays, with a recording where one is wished for; whatever ends that, the guest is saved
// and the recording whole. What can be checked before the guest is touched is: the catalogue, which is loaded
// by then, and the module.
int Play(const Options& options, const std::function<int(const Conversation::Listener&)>& play) {
  const Module loadable(SessionOf(options).module);
  OpenGuest(PathOf(options.guest), GuestUse::Play);
  PrepareGuest();
  Interrupted();
  std::optional<Recorder> recorder;
  Conversation::Listener listen;
  if (!options.trace.empty()) {
    recorder.emplace(PathOf(options.trace));
    listen = [&](const Exchange& exchange) { recorder->Hear(exchange); };
  }
  int status = 0;
  std::exception_ptr failure;
  try {
    status = play(listen);
  } catch (const std::exception&) {  // on its way to the program's end
    failure = std::current_exception();
  }
  const std::filesystem::path saved = SaveGuest();
  if (recorder) recorder->Finish();
  if (failure) std::rethrow_exception(failure);
  if (!saved.empty()) std::cout << "\nThe guest's registry is in " << PathText(saved) << "\n";
  return status;
}

int Run(const Options& options) {
  const Catalogue catalogue = Catalogue::Load(PathOf(options.catalogue));
  return Play(options, [&](const Conversation::Listener& listen) {
    Report report;
    StoryOptions story = options.story;
    story.listen = listen;
    if (!options.report.empty()) {
      story.watch = [&](const std::string& step, const Catalogue& shared, const Snapshot& guest) {
        report.AddStep(step, guest, shared);
      };
      story.listen = [&](const Exchange& exchange) {
        report.Hear(exchange);
        if (listen) listen(exchange);
      };
    }
    const Catalogue last = TellStory(catalogue, SessionOf(options), story);
    if (!options.report.empty()) report.Write(PathOf(options.report));
    if (const std::filesystem::path kept = GuestCatalogue(); !kept.empty()) SaveCatalogue(last, kept);
    return 0;
  });
}

int PlayByHand(const Options& options) {
  ShellOptions by{PathOf(options.catalogue), options.script, options.script.empty() && OpenConsole()};
  const Catalogue catalogue = Catalogue::Load(by.folder);
  return Play(options, [&](const Conversation::Listener& listen) {
    by.listen = listen;
    return RunShell(catalogue, SessionOf(options), by);
  });
}

int CheckCatalogue(const Options& options) {
  std::vector<Remark> remarks;
  const Catalogue catalogue = Catalogue::Check(PathOf(options.catalogue), remarks);
  for (const Remark& remark : remarks) {
    std::cout << (remark.isFault ? "" : "warning: ") << remark.text << "\n";
  }
  const auto faults = std::ranges::count_if(remarks, &Remark::isFault);
  std::cout << catalogue.applications().size() << " applications, "
            << (faults == 0 ? "no fault" : std::to_string(faults) + (faults == 1 ? " fault" : " faults"))
            << " found\n";
  return faults == 0 ? 0 : 1;
}

int ShowTrace(const Options& options) {
  const Trace recorded = ReadTrace(PathOf(options.recording));
  const bool any = PrintTrace(std::cout, recorded, options.application, options.code);
  if (!recorded.fault.empty()) throw std::runtime_error(recorded.fault);
  if (!any) throw std::runtime_error(options.recording + ": holds nothing of that");
  return 0;
}

int ReplayTrace(const Options& options) {
  const Trace recorded = ReadTrace(PathOf(options.recording));
  if (!recorded.fault.empty()) throw std::runtime_error(recorded.fault);
  const std::filesystem::path guest = PathOf(options.guest);
  if (exists(guest) && !is_empty(guest))
    throw std::runtime_error(options.guest + ": the guest must be a new one");
  return Play(options, [&](const Conversation::Listener&) {
    const bool same = Replay(std::cout, recorded, SessionOf(options));
    std::cout << "\nThe guest came out " << (same ? "the same" : "different") << "\n";
    return same ? 0 : 1;
  });
}

}  // namespace

CLI::App& CommandLine::Add(const char* name, const char* help, int (*run)(const Options&)) {
  CLI::App& command = *tool_.add_subcommand(name, help);
  command.callback([this, run] { action_ = [this, run] { return run(options_); }; });
  return command;
}

void CommandLine::AddCatalogue(CLI::App& command, bool required) {
  command.add_option("--catalogue", options_.catalogue, "Folder with catalogue.json and its PNG icons")
      ->required(required);
}

void CommandLine::AddGuest(CLI::App& command) {
  command.add_option("--guest", options_.guest, "Folder that is the guest's drive C (native build only)");
}

void CommandLine::AddModule(CLI::App& command) {
  AddGuest(command);
  command.add_option("--module", options_.module, "The module's library (default: the one beside this tool)");
  command.add_option("--timeout", options_.seconds, "Seconds that the guest may take without a sign of life")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
}

void CommandLine::AddPlayCommands() {
  CLI::App& run = Add("run", "Tell the whole story: on, a changed catalogue, on, off", Run);
  CLI::App& shell = Add("shell", "Play the host by hand, or by a script", PlayByHand);
  for (CLI::App* command : {&run, &shell}) {
    AddCatalogue(*command, true);
    command->add_option("--trace", options_.trace, "File for a recording of what host and guest say");
    AddModule(*command);
  }
  run.add_flag("--keep-on", options_.story.keepOn, "Leave sharing on at the end");
  run.add_flag("--tree", options_.story.trees, "Show after each step what the guest holds");
  run.add_option("--report", options_.report, "HTML file for the story as a page");
  shell.add_option("script", options_.script, "File with commands (default: standard input)");
  AddCatalogue(Add("check", "Check a catalogue and do nothing else", CheckCatalogue), true);

  CLI::App& trace = Add("trace", "Show a recording", ShowTrace);
  CLI::App& replay = Add("replay", "Play a recording's host again, against a new guest", ReplayTrace);
  for (CLI::App* command : {&trace, &replay}) {
    command->add_option("recording", options_.recording, "File that --trace has written")->required();
  }
  trace.add_option("--app", options_.application, "Only what concerns it, an application's name or bundleId");
  trace.add_option("--code", options_.code,
                   "Only this code: announce, sharing, list, icons, details or a number");
  AddModule(replay);
}

std::vector<std::string> NamesOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

std::string Misuse(const CLI::App& app, const CLI::Error& error) {
  const std::vector<std::string> unknown = app.remaining(true);
  if (unknown.empty()) return error.what();
  const auto given = app.get_subcommands();
  return "\"" + unknown[0] + "\" is not understood" +
         DidYouMean(unknown[0], NamesOf(given.empty() ? app : *given[0]));
}

}  // namespace host
