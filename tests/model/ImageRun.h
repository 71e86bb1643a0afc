// Runs of the targets of the image: an image of a random schema, and random calls on it.
#pragma once

#include <cstddef>
#include <string>

#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace quillanest::model {

// The surroundings of all runs of a process.
struct ImageSurroundings : RootsInMemory {
  // Removes the files that a run has saved.
  void remove_data() const;

  // No database of the relational store is named, so nothing is ever connected.
  TestRoot root{"\n[RtdbMedia]\nMainDBType=-1\nBackDBType=-1\n"};
  MemoryFile schema;
  MemoryFile data;
};

// Calls with arguments that make sense, each compared with a model of the tables.
void run_with_model(const ImageSurroundings &surroundings, Input input);

// Calls with any arguments, and descriptors that are written over. What they return is not looked at.
void run_hostile(const ImageSurroundings &surroundings, Input input);

// The same for some milliseconds, while other threads change numbers of the descriptors and put them back.
void run_contended(const ImageSurroundings &surroundings, Input input);

// Runs an input in surroundings that last. Ends the process when something is left of its image.
void run_image(Input input, void (*run)(const ImageSurroundings &, Input));

}  // namespace quillanest::model
