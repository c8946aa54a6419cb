#include "tests/macos/header_listing.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/macos/syntax_tree.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

// A type as the table has it: "!" for what is never nil, "?" for what may be.
std::string Marked(std::string type) {
  static const std::regex kNonnull(" *_Nonnull");
  static const std::regex kNullable(" *_Nullable");
  static const std::regex kComma(",(?! )");
  type = std::regex_replace(type, kNonnull, "!");
  type = std::regex_replace(type, kNullable, "?");
  return std::regex_replace(type, kComma, ", ");
}

std::string MarkedType(const SyntaxTree& node, const std::string& member = "type") {
  return Marked(TypeText(node, member));
}

bool IsAttribute(const SyntaxTree& node) { return Text(node, "kind").ends_with("Attr"); }

[[noreturn]] void Refuse(const SyntaxTree& node) {
  throw std::runtime_error("not understood: " + Text(node, "kind") + " " + Text(node, "name"));
}

std::string MethodLine(const SyntaxTree& method) {
  std::string parameters;
  for (const SyntaxTree* node : Inner(method)) {
    if (Text(*node, "kind") != "ParmVarDecl") continue;
    parameters += (parameters.empty() ? "" : ", ") + MarkedType(*node);
  }
  if (Is(method, "variadic")) parameters += ", ...";
  return (Is(method, "instance") ? "- " : "+ ") + Text(method, "name") + " " +
         MarkedType(method, "returnType") + " (" + parameters + ")";
}

// One member of a class, a category or a protocol.
std::string MemberLine(const SyntaxTree& member) {
  const std::string kind = Text(member, "kind");
  if (kind == "ObjCMethodDecl") return MethodLine(member);
  if (kind == "ObjCPropertyDecl") {
    return (Is(member, "class") ? "class property " : "property ") + Text(member, "name") + " " +
           MarkedType(member);
  }
  if (kind == "ObjCTypeParamDecl") {
    const std::string variance = Text(member, "variance");
    return "parameter " + Text(member, "name") + (variance.empty() ? "" : " " + variance);
  }
  Refuse(member);
}

// The number of an enumerator; `next` is what it is when nothing is said.
long long NumberOf(const SyntaxTree& node, long long next) {
  if (Text(node, "kind") == "ConstantExpr") return std::stoll(Text(node, "value"));
  for (const SyntaxTree* part : Inner(node)) {
    if (!IsAttribute(*part)) return NumberOf(*part, next);
  }
  if (Text(node, "kind") != "EnumConstantDecl") Refuse(node);
  return next;
}

// A function, a variable or a typedef; with the symbol when it is not that of C.
std::string LineOfC(const SyntaxTree& node, const std::string& word) {
  const std::string name = Text(node, "name");
  const std::string symbol = Text(node, "mangledName");
  return word + " " + name + " " + MarkedType(node) +
         (symbol.empty() || symbol == "_" + name ? "" : " with the symbol " + symbol);
}

// Collects the parts.
class Listing {
 public:
  void AddLine(const std::string& part, const std::string& line) {
    std::vector<MetadataLine>& lines = Part(part).lines;
    // What is declared twice is declared.
    if (std::ranges::find(lines, line, &MetadataLine::text) == lines.end()) {
      lines.push_back({line, 0});
    }
  }

  void Add(const std::string& framework, const SyntaxTree& node) {
    const std::string kind = Text(node, "kind");
    if (kind == "FunctionDecl") {
      AddLine(framework, LineOfC(node, "function"));
    } else if (kind == "VarDecl") {
      AddLine(framework, LineOfC(node, "variable"));
    } else if (kind == "TypedefDecl") {
      AddLine(framework, LineOfC(node, "typedef"));
    } else if (kind == "EnumDecl") {
      AddEnum(node);
    } else if (kind == "CXXRecordDecl") {
      AddRecord(node);
    } else if (kind.starts_with("ObjC")) {
      AddObjectiveC(node);
    } else if (kind != "EmptyDecl") {
      Refuse(node);
    }
  }

  std::vector<Metadata> parts() && { return std::move(parts_); }

 private:
  Metadata& Part(const std::string& name) {
    const auto found = std::ranges::find(parts_, name, &Metadata::name);
    if (found != parts_.end()) return *found;
    parts_.push_back({name, "", {}, 0});
    return parts_.back();
  }

  // One without a name goes by that of its first enumerator.
  void AddEnum(const SyntaxTree& node) {
    const std::vector<const SyntaxTree*> inner = Inner(node);
    std::string name = Text(node, "name");
    if (name.empty() && !inner.empty()) name = "(" + Text(*inner.front(), "name") + ")";
    Metadata& part = Part("enum " + name);
    if (node.contains("fixedUnderlyingType")) {
      part.heading = " : " + TypeText(node, "fixedUnderlyingType");
    }
    long long next = 0;
    for (const SyntaxTree* enumerator : inner) {
      if (IsAttribute(*enumerator)) continue;
      const long long number = NumberOf(*enumerator, next);
      part.lines.push_back({Text(*enumerator, "name") + " = " + std::to_string(number), 0});
      next = number + 1;
    }
  }

  void AddRecord(const SyntaxTree& node) {
    const std::string part = Text(node, "tagUsed") + " " + Text(node, "name");
    Part(part);
    for (const SyntaxTree* field : Inner(node)) {
      if (Is(*field, "isImplicit") || IsAttribute(*field)) continue;
      if (Text(*field, "kind") != "FieldDecl") Refuse(*field);
      AddLine(part, Text(*field, "name") + " " + MarkedType(*field));
    }
  }

  void AddObjectiveC(const SyntaxTree& node) {
    const std::string kind = Text(node, "kind");
    const std::string name = Text(node, "name");
    std::string part;
    if (kind == "ObjCInterfaceDecl") {
      part = "class " + name;
    } else if (kind == "ObjCProtocolDecl") {
      part = "protocol " + name;
    } else if (kind == "ObjCCategoryDecl") {
      part = "category " + Text(node.at("interface"), "name") + "(" + name + ")";
    } else {
      Refuse(node);
    }
    Part(part);
    for (const SyntaxTree* member : Inner(node)) {
      if (Is(*member, "isImplicit") || IsAttribute(*member)) continue;
      AddLine(part, MemberLine(*member));
    }
  }

  std::vector<Metadata> parts_;
};

// Adds the constants among the macros of preprocessed text, that is those without arguments that
// stand for something and are not there to decorate declarations.
void AddMacros(const HeaderFolders& headers, const std::string& preprocessed, Listing& listing) {
  static const std::regex kPlace("# \\d+ \"(.*)\".*");
  static const std::regex kMacro("#define (\\w+) (?!extern\\b|__attribute__\\b)(.+)");
  std::string framework;
  std::istringstream stream(preprocessed);
  for (std::string line; std::getline(stream, line);) {
    if (!line.starts_with("#")) continue;
    std::smatch match;
    if (std::regex_match(line, match, kPlace)) {
      framework = headers.FrameworkOf(match.str(1));
    } else if (!framework.empty() && std::regex_match(line, match, kMacro)) {
      listing.AddLine("framework " + framework, "macro " + match.str(1) + " " + match.str(2));
    }
  }
}

}  // namespace

std::vector<Metadata> ListHeaders(const HeaderFolders& headers, const HeaderCompiler& compiler,
                                  const fs::path& folder) {
  const fs::path source = folder / "headers.mm";
  std::ofstream file(source);
  for (const fs::path& header : headers.Headers())
    file << "#import \"" << header.string() << "\"\n";
  file.close();
  const std::string quoted = "'" + source.string() + "'";
  Listing listing;
  AddMacros(headers, Compile(headers, compiler, "-E -dD " + quoted, folder), listing);
  const SyntaxTree tree = SyntaxTree::parse(
      Compile(headers, compiler, "-fsyntax-only -Xclang -ast-dump=json " + quoted, folder));
  for (const TreeDeclaration& declaration : DeclarationsOf(tree)) {
    const std::string framework = headers.FrameworkOf(declaration.file);
    if (!framework.empty()) listing.Add("framework " + framework, *declaration.node);
  }
  std::vector<Metadata> parts = std::move(listing).parts();
  SortLines(parts);
  return parts;
}

void SortLines(std::vector<Metadata>& parts) {
  for (Metadata& part : parts) std::ranges::sort(part.lines, {}, &MetadataLine::text);
}

}  // namespace kelvrin::macos
