// The key algorithm constants, with the strings that Apple's framework gives them.
#import <Foundation/Foundation.h>

// Constant-initialised, so that initialisers of other libraries may read them. That is why they are
// defined as the strings they are, without their header: a cast to SecKeyAlgorithm is no constant.
// NOLINTBEGIN(bugprone-macro-parentheses): a literal is no expression
#define KEY_ALGORITHM(name, text) \
  extern "C" constinit NSString *const kSecKeyAlgorithm##name = @text;
// NOLINTEND(bugprone-macro-parentheses)
#include "platform/linux/ctk/key_algorithms.inc"
