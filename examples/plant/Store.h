// The second act: the plant moves from text files into a relational store and is edited there within a project.
#pragma once

#include "quillanest/Quillanest.h"

namespace plant {

// Writes all databases of the image into the relational store, makes the configuration select it, loads them from there
// and compares. When something is missing, the configuration selects the text files again. The report that it leaves is
// for a run of its own that compares once more.
void move_to_store(CRtdbManager &manager);

// Edits the setpoints within project kProject, saves the project, loads the plant without and with it, commits it, and
// loads once more. Every load is compared with what was saved. The configuration must select the store.
void edit_in_store(CRtdbManager &manager);

}  // namespace plant
