// How the declarations are held against what they are to be.
#pragma once

#define SAME(...) static_assert(__is_same(__VA_ARGS__))
// An expression's type. It is not evaluated; the receiver may be nil.
#define HAS_TYPE(type, ...) SAME(decltype(__VA_ARGS__), type)
#define IS_A(child, parent) static_assert(__is_convertible(child*, parent*))
