/// Something to do when a scope ends, however it ends.
#pragma once

#include <utility>

template <class Function>
class AtEnd {
 public:
  explicit AtEnd(Function function) : function_(std::move(function)) {}
  ~AtEnd() { function_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Function function_;
};
