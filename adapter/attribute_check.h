// Whether what a module says of attributes can be true.
#ifndef KELVRIN_ADAPTER_ATTRIBUTE_CHECK_H_
#define KELVRIN_ADAPTER_ATTRIBUTE_CHECK_H_

#include <p11-kit/pkcs11.h>

#include <span>
#include <vector>

namespace kelvrin::adapter {

// CKR_OK when the module can mean the length for what the caller asked; otherwise what the call
// fails with: CKR_ATTRIBUTE_TYPE_INVALID for a length of -1, CKR_BUFFER_TOO_SMALL for one of more
// than the room there is, or of more than any attribute has where only the length was asked for.
CK_RV CheckLength(const CK_ATTRIBUTE& asked, CK_ULONG length);

// The attributes of one read whose value is a template itself, CKA_WRAP_TEMPLATE for instance. The
// caller gives them an array of attributes with places of his own, and gets types and lengths.
class NestedTemplates {
 public:
  // Remembers the caller's arrays. `attributes` and what they point to must outlive the object.
  explicit NestedTemplates(std::span<CK_ATTRIBUTE> attributes);

  // The arrays become what they were.
  void Restore() const;

  // After a read that gave `result` and lengths that CheckLength has found good: the caller's
  // pointers are his again, and after a success so are the attributes beyond the length. Lengths
  // that cannot be become `no_length`. Returns `result`, or what the read fails with because of
  // them; templates in a template in a template are refused with CKR_ATTRIBUTE_TYPE_INVALID.
  CK_RV Check(CK_RV result, CK_ULONG no_length) const;

 private:
  struct Nested {
    CK_ATTRIBUTE* holder;
    CK_BYTE* place;
    std::vector<CK_ATTRIBUTE> before;
  };

  std::vector<Nested> templates_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ATTRIBUTE_CHECK_H_
