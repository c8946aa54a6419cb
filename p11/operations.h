// The three private-key operations on the card. They keep no state, allocate nothing and ask for
// no lengths beforehand. Calls on one session must not overlap: that is the caller's affair. Failed
// calls of the module are logged through p11_error.
#pragma once

#include <p11-kit/pkcs11.h>

// Bytes that callers offer for every result.
constexpr CK_ULONG kResultSize = 1024;

// Signs data as it stands; the signature comes back as the module wrote it.
//   p11            function list.
//   session        open session, logged in as the key demands.
//   key            private key.
//   mechanism      signature mechanism; the four hash-and-sign PSS mechanisms get parameters.
//   data           bytes to sign; data_len their number.
//   signature      buffer of the caller.
//   signature_len  in: its size in bytes; out: bytes written, never more than on entry.
// Returns the failing call's result, or CKR_OK. A failed C_SignInit leaves the outputs untouched, a
// failed C_Sign as the module left them.
CK_RV sign(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
           CK_MECHANISM_TYPE mechanism, const CK_BYTE* data, CK_ULONG data_len, CK_BYTE* signature,
           CK_ULONG* signature_len);

// Decrypts a ciphertext; no mechanism gets a parameter.
//   p11, session, key  as for sign.
//   mechanism          decryption mechanism.
//   ciphertext         bytes to decrypt; ciphertext_len their number.
//   plaintext          buffer of the caller.
//   plaintext_len      in: its size in bytes; out: bytes written, never more than on entry.
// Returns as sign does, of C_DecryptInit and C_Decrypt.
CK_RV decrypt(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
              CK_MECHANISM_TYPE mechanism, const CK_BYTE* ciphertext, CK_ULONG ciphertext_len,
              CK_BYTE* plaintext, CK_ULONG* plaintext_len);

// Derives a shared secret, without a KDF and without shared data: the raw CKA_VALUE of the derived
// object, which stays in the session.
//   p11, session    as for sign.
//   key             private EC key.
//   mechanism       key agreement mechanism.
//   public_key      the other party's public key data; public_key_len its size in bytes.
//   secret          buffer of the caller, at least kResultSize bytes. What is copied is not limited
//                   to that: a module that leaves a larger length behind, such as the -1 of a
//                   failed read, overruns it.
//   secret_len      out: bytes written; not read. Untouched when C_DeriveKey fails.
// Returns the failing call's result, or CKR_OK. When only the secret's reading fails, secret and
// secret_len are written all the same.
CK_RV derive_key(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                 CK_MECHANISM_TYPE mechanism, const CK_BYTE* public_key, CK_ULONG public_key_len,
                 CK_BYTE* secret, CK_ULONG* secret_len);
