"""What our headers of Apple's frameworks declare, compiled for both slices beside those of
declarations.mm, application_declarations.mm and window_declarations.mm.

    declarations_test.py BUILD
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SDK = pathlib.Path(sys.argv.pop(1)).parent / "macos-sdk"
TARGETS = ("x86_64-apple-macos10.14.6", "arm64-apple-macos11.0")
TOKEN_KIT = "include/CryptoTokenKit"
FRAMEWORKS = "macos/sdk/System/Library/Frameworks"


def compile_beside(platform, target):
    """What the compiler says about the headers below a folder like platform/."""
    result = subprocess.run(
        ["clang++-19", f"--target={target}", "-isysroot", SDK, "-I", platform / "include",
         "-iframework", platform / FRAMEWORKS, "-std=c++20", "-fobjc-weak", "-fsyntax-only",
         "-Wall", "-Woverriding-method-mismatch", "-Werror",
         "-I", SOURCE,
         *(SOURCE / f"tests/macos/{subject}declarations.mm"
           for subject in ("", "application_", "window_"))],
        env={"PATH": "/usr/bin:/bin"}, capture_output=True, text=True, check=False)
    return result.stderr


class DeclarationsTest(unittest.TestCase):
    def test_are_apples(self):
        for target in TARGETS:
            self.assertEqual(compile_beside(SOURCE / "platform", target), "")

    def test_others_are_found(self):
        spoilers = (
            (f"{TOKEN_KIT}/TKBase.h", "BadParameter = -8", "BadParameter = -7", "static assertion"),
            (f"{TOKEN_KIT}/TKToken.h", "signData:(NSData *)", "signData:(NSString *)",
             "conflicting parameter types"),
            (f"{TOKEN_KIT}/TKToken.h", "- (void)token:", "- (BOOL)token:",
             "conflicting return type"),
            (f"{TOKEN_KIT}/TKSmartCardToken.h", "AID:(nullable NSData *)AID", "AID:(NSData *)AID",
             "null passed to a callee that requires a non-null argument"),
            (f"{TOKEN_KIT}/TKTokenKeychain.h", "- (nullable instancetype)", "- (instancetype)",
             "conflicting nullability specifier on return types"),
            (f"{TOKEN_KIT}/TKTokenKeychain.h", "(copy, nullable) NSData *applicationTag",
             "(copy, nullable) NSString *applicationTag", "property type"),
            (f"{TOKEN_KIT}/TKTokenKeychain.h", "NSArray<TKTokenKeychainItem *> *items",
             "NSArray<NSData *> *items", "static assertion"),
            ("include/Security/SecCertificate.h", "struct __SecCertificate*", "const void*",
             "static assertion"),
            ("include/Security/SecItem.h", "CFTypeRef _Nullable* _Nullable result",
             "CFTypeRef _Nullable* _Nonnull result", "null passed to a callee"),
            (f"{TOKEN_KIT}/TKTokenWatcher.h", "NSArray<NSString *> *tokenIDs",
             "NSArray<NSData *> *tokenIDs", "property type"),
            (f"{FRAMEWORKS}/Foundation.framework/Headers/NSData.h", "NSUInteger length",
             "NSInteger length", "static assertion"),
        )
        for file, old, new, said in spoilers:
            with self.subTest(file, new=new), tempfile.TemporaryDirectory() as folder:
                copy = pathlib.Path(folder) / "platform"
                shutil.copytree(SOURCE / "platform/include", copy / "include")
                shutil.copytree(SOURCE / "platform" / FRAMEWORKS, copy / FRAMEWORKS)
                text = (copy / file).read_text(encoding="utf-8")
                self.assertIn(old, text)
                (copy / file).write_text(text.replace(old, new), encoding="utf-8")
                self.assertIn(said, compile_beside(copy, TARGETS[1]))


if __name__ == "__main__":
    unittest.main()
