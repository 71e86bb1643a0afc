// The events of the library, as texts.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "quillanest/Quillanest.h"

// The events of its life, as "severity place:line:column code: text", without the root's folder.
class Recorder {
 public:
  explicit Recorder(const std::string &folder) : folder_(folder) {
    quillanest::set_event_handler([](const quillanest::Event &event, void *self) { take(event, self); }, this);
  }
  ~Recorder() { quillanest::set_event_handler(nullptr, nullptr); }
  Recorder(const Recorder &) = delete;
  Recorder &operator=(const Recorder &) = delete;

  [[nodiscard]] bool has(const std::string &wanted) const {
    return std::any_of(events.begin(), events.end(), [&](const std::string &e) { return e.starts_with(wanted); });
  }
  [[nodiscard]] std::string text() const {
    std::string all;
    for (const std::string &event : events) all += event + "\n";
    return all;
  }

  std::vector<std::string> events;

 private:
  static void take(const quillanest::Event &event, void *self) {
    auto &recorder = *static_cast<Recorder *>(self);
    constexpr const char *kNames[] = {"note", "warning", "error"};
    std::string place = event.place;
    if (place.starts_with(recorder.folder_)) place.erase(0, recorder.folder_.size());
    if (event.line > 0) place += ":" + std::to_string(event.line);
    if (event.column > 0) place += ":" + std::to_string(event.column);
    recorder.events.push_back(std::string(kNames[static_cast<int>(event.severity)]) + " " + place + " " + event.code +
                              ": " + event.text);
  }

  const std::string folder_;
};
