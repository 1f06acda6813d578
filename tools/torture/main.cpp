// velomira-torture: what a hostile host can do to the guest.
#include <CLI/CLI.hpp>
#include <iostream>

#include "host/system.h"
#include "torture/misfits.h"
#include "torture/mutations.h"

int main(int argc, char** argv) {
  CLI::App app{"Plays a hostile host, and checks what comes of it in the guest."};
  app.require_subcommand(1);
  std::string catalogue, guest;
  CLI::App& mutations =
      *app.add_subcommand("mutations", "Every changed byte and every truncation of real replies");
  mutations.add_option("--catalogue", catalogue, "Folder with catalogue.json and its PNG icons")->required();
  CLI::App& misfits = *app.add_subcommand("misfits", "One malformed application among a hundred");
  for (CLI::App* command : {&mutations, &misfits}) {
    command->add_option("--guest", guest, "Folder that is to be the guest's drive C; it is emptied")
        ->required();
  }
  CLI11_PARSE(app, argc, argv);
  try {
    const bool passed =
        misfits ? torture::Misfits(host::DefaultModule(), guest) : torture::Mutations(catalogue, guest);
    return passed ? 0 : 1;
  } catch (const std::exception& failure) {
    std::cerr << "velomira-torture: " << failure.what() << "\n";
    return 1;
  }
}
