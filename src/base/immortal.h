// Something process-wide that is never destroyed.
//
// A host that exits without unloading the plug-in still has threads inside when the destructors of
// static objects run. What those threads use must outlive them; the system takes its memory back.
#pragma once

namespace tvx {

template <typename T>
union Immortal {
  Immortal() : value() {}
  ~Immortal() {}
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;
  T value;
};

}  // namespace tvx
