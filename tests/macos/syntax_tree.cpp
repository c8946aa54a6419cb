#include "tests/macos/syntax_tree.h"

namespace kelvrin::macos {
namespace {

class Reader {
 public:
  // Adds what is inside of a node.
  void Add(const SyntaxTree& parent) {
    for (const SyntaxTree* node : Inner(parent)) {
      Pass(node->value("loc", SyntaxTree()));
      if (Text(*node, "kind") == "LinkageSpecDecl") {
        Pass(node->value("range", SyntaxTree()));
        Add(*node);
        continue;
      }
      if (!Is(*node, "isImplicit")) declarations_.push_back({file_, node});
      Pass(*node);
    }
  }

  std::vector<TreeDeclaration> declarations() && { return std::move(declarations_); }

 private:
  // Keeps track of the file through everything in a part of the tree. For what a macro makes, its
  // use comes after its definition. Who includes a file is no place.
  void Pass(const SyntaxTree& part) {
    for (const auto& [key, value] : part.items()) {
      if (key == "file") {
        file_ = value.get<std::string>();
      } else if (key != "includedFrom" && value.is_structured()) {
        Pass(value);
      }
    }
  }

  std::string file_;
  std::vector<TreeDeclaration> declarations_;
};

}  // namespace

std::vector<TreeDeclaration> DeclarationsOf(const SyntaxTree& tree) {
  Reader reader;
  reader.Add(tree);
  return std::move(reader).declarations();
}

std::string Text(const SyntaxTree& node, const std::string& member) {
  return node.value(member, std::string());
}

std::string TypeText(const SyntaxTree& node, const std::string& member) {
  return node.at(member).at("qualType").get<std::string>();
}

bool Is(const SyntaxTree& node, const std::string& member) { return node.value(member, false); }

std::vector<const SyntaxTree*> Inner(const SyntaxTree& node) {
  std::vector<const SyntaxTree*> inner;
  const auto found = node.find("inner");
  if (found == node.end()) return inner;
  for (const SyntaxTree& child : *found) inner.push_back(&child);
  return inner;
}

}  // namespace kelvrin::macos
