// Printing of snapshots. A tree is built of the paths' components first, because which lines can be joined is
// known only when a key's whole content is.
#include "host/tree.h"

#include <memory>
#include <ostream>
#include <vector>

#include "host/difference.h"

namespace host {
namespace {

struct Node {
  std::string name;
  std::string text;  // behind the name
  char mark = ' ';
  bool value = false;
  std::vector<std::unique_ptr<Node>> children;

  // Values without text share a node, their names listed.
  bool names() const { return value && text.empty(); }
};

// A value's data for the eye: texts without the notation's quotation marks.
std::string Shown(const std::string& data) {
  if (IsRegistryText(data)) return TextOfValue(data);
  return data == "REG_NONE, 0 bytes" ? "(no data)" : data;
}

class Tree {
 public:
  // Paths arrive in the order of PathLess. `text` is a value's data or what is to be said of a file.
  void Add(const std::string& path, char mark, const std::string& text) {
    const auto value = path.find(valueMark);
    std::string_view rest = std::string_view(path).substr(0, value);
    Node* node = &root_;
    while (!rest.empty()) {
      const auto end = std::min(rest.find('\\'), rest.size());
      node = &Child(*node, rest.substr(0, end));
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (value != std::string::npos) {
      const std::string name = value + 1 == path.size() ? "(default)" : path.substr(value + 1);
      if (text.empty() && !node->children.empty() && node->children.back()->names() &&
          node->children.back()->mark == mark) {
        node->children.back()->name += ", " + name;
        return;
      }
      node->children.push_back(std::make_unique<Node>());
      node = node->children.back().get();
      node->value = true;
      node->name = name;
    }
    node->mark = mark;
    node->text = Abbreviated(text);
  }

  void Print(std::ostream& out) const {
    for (const auto& child : root_.children) Print(out, *child, "");
  }

 private:
  static Node& Child(Node& node, std::string_view name) {
    if (node.children.empty() || node.children.back()->value ||
        !EqualNoCase(node.children.back()->name, name)) {
      node.children.push_back(std::make_unique<Node>());
      node.children.back()->name = name;
    }
    return *node.children.back();
  }

  // One line for a node and for those below it that are alone; of what went as a whole, only the top.
  static void Print(std::ostream& out, const Node& top, const std::string& indent) {
    const Node* node = &top;
    std::string line = node->name;
    while (node->mark != '-' && node->children.size() == 1 &&
           (node->mark == ' ' || node->mark == node->children[0]->mark)) {
      node = node->children[0].get();
      if (!node->value) line += "\\" + node->name;
      if (node->value && (node->names() || node->name != "(default)")) line += " : " + node->name;
    }
    std::size_t printed = 0;  // children that are on this line already
    if (node->mark != '-' && !node->children.empty() && node->children[0]->names() &&
        node->mark == node->children[0]->mark) {
      line += " : " + node->children[0]->name;
      printed = 1;
    }
    if (node->value && !node->names()) line += " =";
    out << "  " << node->mark << ' ' << indent << line << (node->text.empty() ? "" : " " + node->text)
        << "\n";
    if (node->mark == '-') return;
    for (std::size_t i = printed; i < node->children.size(); ++i)
      Print(out, *node->children[i], indent + "  ");
  }

  std::string Abbreviated(std::string text) const {
    for (auto at = text.find(folder_); at != std::string::npos; at = text.find(folder_)) {
      text.replace(at, folder_.size(), "{folder}");
    }
    return text;
  }

  Node root_;
  std::string folder_ = LauncherFolder();
};

std::string TextOfFile(const Snapshot& guest, const std::string& path) {
  const auto launcher = guest.launchers.find(path);
  if (launcher == guest.launchers.end()) return "";
  std::string text = " " + launcher->second.bundleId + ", icons";
  for (int size : launcher->second.iconSizes) text += " " + std::to_string(size);
  return text;
}

// Calls `add(path, mark, text)` for every entry that differs; true when there was one.
template <class Add>
bool ForEachChange(const Entries& before, const Entries& after, const Add& add) {
  bool any = false;
  ForEachDifference(before, after,
                    [&](const std::string& path, const std::string* old, const std::string* now) {
                      any = true;
                      if (old == nullptr) {
                        add(path, '+', Shown(*now));
                      } else if (now == nullptr) {
                        add(path, '-', "");
                      } else {
                        add(path, '~', Shown(*old) + " -> " + Shown(*now));
                      }
                    });
  return any;
}

}  // namespace

void PrintFiles(std::ostream& out, const Snapshot& guest) {
  Tree tree;
  for (const auto& [path, unused] : guest.files) tree.Add(path, ' ', TextOfFile(guest, path));
  tree.Print(out);
}

void PrintRegistry(std::ostream& out, const Snapshot& guest) {
  Tree tree;
  for (const auto& [path, data] : guest.registry) tree.Add(path, ' ', Shown(data));
  tree.Print(out);
}

bool PrintDifference(std::ostream& out, const Snapshot& before, const Snapshot& after) {
  Tree files, registry;
  const bool filesDiffer = ForEachChange(
      before.files, after.files, [&](const std::string& path, char mark, const std::string& text) {
        files.Add(path, mark, mark == '+' ? TextOfFile(after, path) : text);
      });
  const bool registryDiffers = ForEachChange(
      before.registry, after.registry,
      [&](const std::string& path, char mark, const std::string& data) { registry.Add(path, mark, data); });
  files.Print(out);
  registry.Print(out);
  return filesDiffer || registryDiffers;
}

}  // namespace host
