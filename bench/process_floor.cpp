// The process floor: a C++ program that prints one line and exits, compiled and linked like
// `ombrine` (same compiler, flags and shared libstdc++), so scripts/bench-summary can tell what
// a short run of ours costs beyond what any such program costs.

#include <iostream>

int main() {
  std::cout << "ok\n";
  return 0;
}
