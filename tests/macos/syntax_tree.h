// The compiler's syntax tree of a source, and which file each declaration in it comes from.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kelvrin::macos {

// In the order of the text: a place names its file only when the place before it is in another.
using SyntaxTree = nlohmann::ordered_json;

struct TreeDeclaration {
  std::string file;
  const SyntaxTree* node = nullptr;
};

// The declarations of a tree that are not part of others, without those of the compiler itself;
// blocks of extern "C" are looked into. The tree has to stay for as long as the declarations.
std::vector<TreeDeclaration> DeclarationsOf(const SyntaxTree& tree);

// A member that is a text, such as "name"; "" when there is none.
std::string Text(const SyntaxTree& node, const std::string& member);

// The written type, not what it stands for, in a member such as "type".
std::string TypeText(const SyntaxTree& node, const std::string& member = "type");

// Whether a member is there and true.
bool Is(const SyntaxTree& node, const std::string& member);

// What a node is made of; none when it has nothing inside.
std::vector<const SyntaxTree*> Inner(const SyntaxTree& node);

}  // namespace kelvrin::macos
