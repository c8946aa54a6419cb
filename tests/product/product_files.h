// Where the product's files lie that tests load or run: those of this build, or, where
// KELVRIN_SHIPPED_FILES names the macOS build, those that ship; the loader runs these here.
#pragma once
#include <filesystem>
#include <string>

namespace product {

std::filesystem::path Adapter();
std::filesystem::path Modulecheck();

// Whether they are those that ship: their C++ library is then another than the tests'.
bool AreShipped();

// Copies the extension's bundle to a folder that does not exist yet. Its adapter is configured for
// SoftHSM2, whatever the reader's name.
void CopyBundle(const std::filesystem::path& to);

}  // namespace product
