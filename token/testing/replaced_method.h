// Puts another implementation in a method's place for a while.
#pragma once

#import <Foundation/Foundation.h>
#import <objc/runtime.h>

namespace token_testing {

class ReplacedMethod {
 public:
  // An instance method, or a class method when `owner` is a class's own class.
  ReplacedMethod(Class owner, SEL selector, IMP replacement)
      : method_(class_getInstanceMethod(owner, selector)),
        original_(method_setImplementation(method_, replacement)) {}
  ~ReplacedMethod() { method_setImplementation(method_, original_); }
  ReplacedMethod(const ReplacedMethod&) = delete;
  ReplacedMethod& operator=(const ReplacedMethod&) = delete;

  IMP original() const { return original_; }

 private:
  Method method_;
  IMP original_;
};

}  // namespace token_testing
