#include "guest.h"

#include <objbase.h>
#include <platform/control.h>
#include <shlobj.h>
#include <unistd.h>

#include <cstring>
#include <unordered_map>

#include "applications.h"
#include "channel/mainfo.h"
#include "channel/tool_gate.h"
#include "host/prepare.h"
#include "host/replies.h"
#include "launcher/fs.h"
#include "registry/registry_registration.h"
#include "sync/stale_sweep.h"
#include "sync/sync_pass.h"
#include "sync/withdrawal.h"

namespace bench {

const char* NameOf(Work work) {
  static constexpr const char* names[] = {"first pass", "unchanged pass", "a tenth changed", "withdrawal"};
  return names[static_cast<std::size_t>(work)];
}

Guest::Guest(std::size_t foreignClasses)
    : root_(std::filesystem::temp_directory_path() / ("velomira-bench-" + std::to_string(getpid()))) {
  std::filesystem::remove_all(root_);
  platform::SetGuestRoot(root_);
  platform::ResetRegistry();
  host::PrepareGuest();
  AddForeignClasses(foreignClasses);
  CoInitialize(nullptr);
}

Guest::~Guest() {
  CoUninitialize();
  std::filesystem::remove_all(root_);
}

// The gate, with every reply made beforehand: what is measured is not the host.
class Host : public platform::Device {
 public:
  void Share(const std::vector<host::Application>& applications) {
    lists_.clear();
    replies_.clear();
    for (std::size_t begin = 0; begin == 0 || begin < applications.size(); begin += listRoom) {
      host::Catalogue part;
      const std::size_t end = std::min(begin + listRoom, applications.size());
      for (std::size_t i = begin; i < end; ++i) {
        part.Add(applications[i]);
        for (const std::uint32_t code : {CmdGetAppIcons, CmdGetAppDetails}) {
          host::Catalogue one;
          one.Add(applications[i]);
          const host::Bytes question = Question(code, applications[i].bundleId);
          replies_[Key(question)] = host::AnswerCommand(one, question).bytes;
        }
      }
      lists_.push_back(host::AnswerCommand(part, Question(CmdGetAppList, "*")).bytes);
    }
  }
  std::size_t lists() const { return lists_.size(); }

  DWORD Open(DWORD, DWORD, bool) override { return 0; }
  void Close() override {}
  void Cancel(const std::shared_ptr<platform::IoRequest>&) override {}
  void Control(std::shared_ptr<platform::IoRequest> request) override {
    auto& packet = *static_cast<TgPacket<2>*>(request->buffer());
    auto* memory = reinterpret_cast<std::byte*>(packet.buffers[0].address);
    const std::span<const std::byte> question(memory, packet.buffers[0].byteCount);
    const host::Bytes& reply = host::GetU32(question, 0) == CmdGetAppList ? lists_[asked_++ % lists_.size()]
                                                                          : replies_.at(Key(question));
    std::memcpy(memory, reply.data(), reply.size());
    request->Complete(0, sizeof packet);
  }

 private:
  static host::Bytes Question(std::uint32_t code, const std::string& argument) {
    const std::uint32_t room = code == CmdGetAppIcons ? 277764 : 32748;
    return host::Envelope(
        code, host::Items().Text(host::textItem, argument).Number(host::numberItem, room).bytes());
  }
  // What is asked, and of whom: the code and the first item's text.
  static std::string Key(std::span<const std::byte> question) {
    return std::to_string(host::GetU32(question, 0)) + reinterpret_cast<const char*>(question.data() + 32);
  }

  std::vector<host::Bytes> lists_;
  std::size_t asked_ = 0;
  std::unordered_map<std::string, host::Bytes> replies_;
};

namespace {
std::vector<host::Application> Gone(std::size_t count) {
  std::vector<host::Application> gone;
  for (std::size_t i = 0; i < count; i += 10) gone.push_back(MakeApplication(i));
  return gone;
}
}  // namespace

Mirror::Mirror(std::size_t count)
    : count_(count),
      host_(std::make_shared<Host>()),
      line_(MakeApplications(count), {}),
      changedLine_(MakeApplications(count, true), Gone(count)) {
  platform::SetDevice("\\\\.\\tsr_tg", host_);
}

Mirror::~Mirror() {
  platform::SetDevice("\\\\.\\tsr_tg", nullptr);
}

// SyncHostApplications, for more applications than one list reply can hold.
void Mirror::Pass() const {
  const WideString folder = LauncherFolder();
  if (host_->lists() == 1) return SyncHostApplications(folder);
  MacAppInfoList apps;
  for (std::size_t i = 0; i < host_->lists(); ++i) GetMacAppList(TEXT("*"), apps);
  RemoveStaleLaunchers(apps, folder);
  bool changed = false;
  for (const MacAppInfo& app : apps) changed |= RegisterHostApplication(folder, app, true);
  if (changed) SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}

void Mirror::Share(Work work) {
  host_->Share(MakeApplications(count_, work == Work::Changed));
}

void Mirror::Run(Work work, bool straight) const {
  const StraightLine& line = work == Work::Changed || work == Work::Withdrawal ? changedLine_ : line_;
  if (work == Work::Withdrawal) return straight ? line.Withdraw() : WithdrawHostApplications();
  straight ? line.Pass() : Pass();
}

}  // namespace bench
