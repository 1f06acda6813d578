// The commands that play the host, and the options that several commands share.
#include "host/commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "host/pictures.h"
#include "host/prepare.h"
#include "host/replay.h"
#include "host/report.h"
#include "host/shell.h"
#include "host/system.h"
#include "host/text.h"
#include "host/trace.h"

namespace host {
namespace {

struct PlayOptions : GuestOptions {
  std::string module, report, trace, script;
  double seconds = 30;
  StoryOptions story;

  void AddTo(CLI::App& command) {
    AddCatalogue(command, true);
    command.add_option("--trace", trace, "File for a recording of what host and guest say to each other");
    AddModule(command);
  }

  void AddModule(CLI::App& command) {
    AddGuest(command);
    command.add_option("--module", module, "The module's library (default: the one beside this tool)");
    command.add_option("--timeout", seconds, "Seconds that the guest may take without a sign of life")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
  }

  SessionOptions Session() const {
    return {module.empty() ? DefaultModule() : std::filesystem::absolute(PathOf(module)),
            std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000))};
  }
};

// Opens the guest and plays; whatever ends that, the guest is saved. What can be checked before the guest is
// touched is: the catalogue, which is loaded by then, and the module.
int Play(const PlayOptions& options, const std::function<int()>& play) {
  const Module loadable(options.Session().module);
  OpenGuest(PathOf(options.guest), GuestUse::Play);
  PrepareGuest();
  Interrupted();
  int status = 0;
  try {
    status = play();
  } catch (const std::exception&) {  // on its way to the program's end
    SaveGuest();
    throw;
  }
  if (const std::filesystem::path saved = SaveGuest(); !saved.empty()) {
    std::cout << "\nThe guest's registry is in " << PathText(saved) << "\n";
  }
  return status;
}

// Plays, with a recording where one is wished for; a failure is recorded, too.
int PlayRecorded(const PlayOptions& options, const std::function<int(const Conversation::Listener&)>& play) {
  if (options.trace.empty()) return play({});
  Recorder recorder(PathOf(options.trace));
  try {
    const int status = play([&](const Exchange& exchange) { recorder.Hear(exchange); });
    recorder.Finish();
    return status;
  } catch (const std::exception&) {  // on its way to the program's end
    recorder.Finish();
    throw;
  }
}

struct TraceOptions : PlayOptions {
  std::string file, application, code;
};

int ShowTrace(const TraceOptions& options) {
  const Trace recorded = ReadTrace(PathOf(options.file));
  const bool any = PrintTrace(std::cout, recorded, options.application, options.code);
  if (!recorded.fault.empty()) throw std::runtime_error(recorded.fault);
  if (!any) throw std::runtime_error(options.file + ": holds nothing of that");
  return 0;
}

int ReplayTrace(const TraceOptions& options) {
  const Trace recorded = ReadTrace(PathOf(options.file));
  if (!recorded.fault.empty()) throw std::runtime_error(recorded.fault);
  const std::filesystem::path guest = PathOf(options.guest);
  if (exists(guest) && !is_empty(guest))
    throw std::runtime_error(options.guest + ": the guest must be a new one");
  return Play(options, [&] {
    const bool same = Replay(std::cout, recorded, options.Session());
    std::cout << (same ? "\nThe guest came out the same\n" : "\nThe guest came out different\n");
    return same ? 0 : 1;
  });
}

void AddTraceCommands(CLI::App& tool, Action& action) {
  const auto options = std::make_shared<TraceOptions>();
  const auto add = [&](const char* name, const char* help, int (*run)(const TraceOptions&)) -> CLI::App& {
    CLI::App& command = *tool.add_subcommand(name, help);
    command.add_option("recording", options->file, "File that --trace has written")->required();
    command.callback([options, run, &action] { action = [options, run] { return run(*options); }; });
    return command;
  };
  CLI::App& trace = add("trace", "Show a recording", ShowTrace);
  trace.add_option("--app", options->application, "Only what concerns this application, by name or bundleId");
  trace.add_option("--code", options->code,
                   "Only this code: announce, sharing, list, icons, details or a number");
  options->AddModule(add("replay", "Play a recording's host once more, against a new guest", ReplayTrace));
}

}  // namespace

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

void GuestOptions::AddCatalogue(CLI::App& command, bool required) {
  command.add_option("--catalogue", catalogue, "Folder with catalogue.json and its PNG icons")
      ->required(required);
}

void GuestOptions::AddGuest(CLI::App& command) {
  command.add_option("--guest", guest, "Folder that is the guest's drive C (native build only)");
}

void AddPlayCommands(CLI::App& tool, Action& action) {
  const auto options = std::make_shared<PlayOptions>();

  CLI::App& run = *tool.add_subcommand("run", "Tell the whole story: on, a changed catalogue, on, off");
  options->AddTo(run);
  run.add_flag("--keep-on", options->story.keepOn, "Leave sharing on at the end");
  run.add_flag("--tree", options->story.trees, "Show after each step what the guest holds");
  run.add_option("--report", options->report, "HTML file for the story as a page");
  run.callback([options, &action] {
    action = [options] {
      const Catalogue catalogue = Catalogue::Load(PathOf(options->catalogue));
      const auto tell = [&](const Conversation::Listener& listen) {
        Report report;
        StoryOptions story = options->story;
        story.listen = listen;
        if (!options->report.empty()) {
          story.watch = [&](const std::string& step, const Catalogue& shared, const Snapshot& guest) {
            report.AddStep(step, guest, shared);
          };
          story.listen = [&](const Exchange& exchange) {
            report.Hear(exchange);
            if (listen) listen(exchange);
          };
        }
        const Catalogue last = TellStory(catalogue, options->Session(), story);
        if (!options->report.empty()) report.Write(PathOf(options->report));
        if (const std::filesystem::path kept = GuestCatalogue(); !kept.empty()) SaveCatalogue(last, kept);
        return 0;
      };
      return Play(*options, [&] { return PlayRecorded(*options, tell); });
    };
  });

  CLI::App& shell = *tool.add_subcommand("shell", "Play the host by hand, or by a script");
  options->AddTo(shell);
  shell.add_option("script", options->script, "File with commands (default: standard input)");
  shell.callback([options, &action] {
    action = [options] {
      ShellOptions by{PathOf(options->catalogue), options->script, options->script.empty() && OpenConsole()};
      const Catalogue catalogue = Catalogue::Load(by.folder);
      const auto play = [&](const Conversation::Listener& listen) {
        by.listen = listen;
        return RunShell(catalogue, options->Session(), by);
      };
      return Play(*options, [&] { return PlayRecorded(*options, play); });
    };
  });

  CLI::App& check = *tool.add_subcommand("check", "Check a catalogue and do nothing else");
  options->AddCatalogue(check, true);
  check.callback([options, &action] {
    action = [options] {
      std::vector<Remark> remarks;
      const Catalogue catalogue = Catalogue::Check(PathOf(options->catalogue), remarks);
      for (const Remark& remark : remarks) {
        std::cout << (remark.isFault ? "" : "warning: ") << remark.text << "\n";
      }
      const auto faults = std::ranges::count_if(remarks, &Remark::isFault);
      std::cout << catalogue.applications().size() << " applications, "
                << (faults == 0 ? "no fault" : std::to_string(faults) + (faults == 1 ? " fault" : " faults"))
                << " found\n";
      return faults == 0 ? 0 : 1;
    };
  });

  AddTraceCommands(tool, action);
}

}  // namespace host
