// How long the tests of this program run, and the seed of their random choices. Each test prints one line of figures.
//
// QUILLANEST_ABUSE is "short", as without it, or "full"; QUILLANEST_ABUSE_SEED repeats the choices of a run.
#pragma once

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>

// The number for this run.
inline int length(int in_short, int in_full) {
  const char *text = std::getenv("QUILLANEST_ABUSE");
  const std::string word = text == nullptr ? "short" : text;
  if (word != "short" && word != "full") throw std::runtime_error("QUILLANEST_ABUSE is neither \"short\" nor \"full\"");
  return word == "full" ? in_full : in_short;
}

inline unsigned seed() {
  const char *text = std::getenv("QUILLANEST_ABUSE_SEED");
  return text == nullptr ? std::random_device{}() : static_cast<unsigned>(std::stoul(text));
}
