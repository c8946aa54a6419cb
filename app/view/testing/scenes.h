// All that the window can show, each as what happened before.
#pragma once

#include <string>
#include <vector>

#import "app/view/testing/shown_window.h"

namespace kelvrin::app {

struct Scene {
  std::string name;
  State state;
  void (*play)(ShownWindow* shown);
};

const std::vector<Scene>& Scenes();

inline constexpr char kReader[] = "Example Card Reader 2000 [CCID Interface] (4711-0815) 00 00";

// A card with a certificate of each kind: RSA, P-256, without a key.
void InsertCard(ShownWindow* shown);

}  // namespace kelvrin::app
