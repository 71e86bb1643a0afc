# The sources of the model, for the tests and for the fuzz targets, each with options of their own.
set(MODEL_SOURCES
  HostileDatabase.cpp
  HostileRun.cpp
  HostileTable.cpp
  ModelEdits.cpp
  ModelReads.cpp
  ModelRun.cpp
  RandomSchema.cpp
  Support.cpp
  TableModel.cpp)
list(TRANSFORM MODEL_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
