#include "platform/macho/objc/classes.h"

#include <map>

#include "platform/macho/objc/format_methods.h"
#include "platform/macho/objc/metadata.h"
#include "platform/macho/objc/protocols.h"
#include "platform/macho/objc/runtime.h"
#include "platform/macho/objc/strings.h"

namespace macho::objc {
namespace {

// The pointers that make up a section.
std::vector<void**> Pointers(const Image& image, const char* name) {
  std::vector<void**> found;
  const Section* const section = image.Find(name);
  if (section == nullptr) return found;
  auto* const first = reinterpret_cast<void**>(section->start);
  for (size_t i = 0; i < section->size / sizeof(void*); ++i) found.push_back(first + i);
  return found;
}

class Registrar {
 public:
  explicit Registrar(const Image& image) : image_(image), runtime_(TheRuntime()) {}

  void Run() {
    AddClasses();
    for (void** category : Pointers(image_, "__objc_catlist")) {
      Extend(*static_cast<const Category*>(*category));
    }
    for (const char* name : {"__objc_classrefs", "__objc_superrefs"}) {
      for (void** reference : Pointers(image_, name)) *reference = Meant(*reference);
    }
    for (void** reference : Pointers(image_, "__objc_selrefs")) {
      const auto* name = static_cast<const char*>(*reference);
#ifdef __aarch64__
      name = MethodToSend(name);
#endif
      const SEL selector = runtime_.selector(name);
      *reference = const_cast<objc_selector*>(selector);
    }
    ConvertStrings(image_);
    for (const char* name : {"__objc_nlclslist", "__objc_nlcatlist"}) {
      if (image_.Find(name) != nullptr) throw Error("+load is not supported", name);
    }
  }

 private:
  LoadError Error(const std::string& what, const char* name) const {
    return LoadError(image_.path + ": " + what + ": " + name);
  }

  // Superclasses come before the classes that are made from them.
  void AddClasses() {
    std::vector<const Class*> left;
    for (void** each : Pointers(image_, "__objc_classlist")) {
      left.push_back(static_cast<const Class*>(*each));
    }
    while (!left.empty()) {
      const size_t before = left.size();
      std::erase_if(left, [this](const Class* each) {
        ::Class const superclass = Meant(each->superclass);
        if (superclass == nullptr) return false;
        Add(*each, superclass);
        return true;
      });
      if (left.size() == before) throw Error("a class without superclass", left[0]->Data().name);
    }
  }

  // The class that a reference means: one of the image's, if it is made already, or one of the
  // program, to which the reference has been bound.
  ::Class Meant(void* reference) const {
    const auto found = made_.find(reference);
    if (found != made_.end()) return found->second;
    return image_.Contains(reference) ? nullptr : static_cast<::Class>(reference);
  }

  void Add(const Class& from, ::Class superclass) {
    const ClassData& data = from.Data();
    ::Class const made = runtime_.allocate(superclass, data.name, 0);
    if (made == nullptr) throw Error("a class that is there already", data.name);
    AddVariables(data, made);
    AddMethods(data.methods, made);
    AddProtocols(data.protocols, made);
    AddMethods(from.metaclass->Data().methods, Metaclass(made));
    runtime_.register_class(made);
    SlideVariables(data, made);
    made_[&from] = made;
    made_[from.metaclass] = Metaclass(made);
  }

  void AddVariables(const ClassData& data, ::Class to) const {
    for (uint32_t i = 0; data.variables != nullptr && i < data.variables->count; ++i) {
      const Variable& variable = (*data.variables)[i];
      if (runtime_.add_variable(to, variable.name, variable.size,
                                static_cast<unsigned char>(variable.alignment),
                                variable.type) == NO) {
        throw Error("a variable that cannot be added", variable.name);
      }
    }
  }

  // Where the variables lie is known when the superclass's size is: code reads it at run time.
  void SlideVariables(const ClassData& data, ::Class of) const {
    for (uint32_t i = 0; data.variables != nullptr && i < data.variables->count; ++i) {
      const Variable& variable = (*data.variables)[i];
      *variable.offset =
          static_cast<int32_t>(runtime_.offset(runtime_.variable(of, variable.name)));
    }
  }

  void AddMethods(const List<Method>* methods, ::Class to) const {
    if (methods == nullptr) return;
    if (methods->HasRelativeEntries()) throw Error("relative method lists are not supported", "");
    for (uint32_t i = 0; i < methods->count; ++i) {
      const Method& method = (*methods)[i];
      runtime_.add_method(to, runtime_.typed_selector(method.name, method.types),
                          reinterpret_cast<IMP>(method.code), method.types);
    }
  }

  void AddProtocols(const ProtocolList* protocols, ::Class to) const {
    if (protocols == nullptr) return;
    for (const Protocol* protocol : *protocols) {
      runtime_.add_protocol(to, static_cast<::Protocol*>(ProtocolLike(*protocol)));
    }
  }

  void Extend(const Category& category) const {
    ::Class const extended = Meant(category.extended);
    if (extended == nullptr) throw Error("a category of no class", category.name);
    AddMethods(category.methods, extended);
    AddMethods(category.class_methods, Metaclass(extended));
    AddProtocols(category.protocols, extended);
  }

  const Image& image_;
  const Runtime& runtime_;
  std::map<const void*, ::Class> made_;  // of the image, metaclasses too
};

}  // namespace
}  // namespace macho::objc

namespace macho {

void RegisterClasses(const Image& image) {
  if (image.Find("__objc_imageinfo") != nullptr) objc::Registrar(image).Run();
}

}  // namespace macho
