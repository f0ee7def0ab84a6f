// Where faults are injected: memory and the file system, as the plug-in's code sees them.
//
// The program that links this replaces malloc (operator new in a sanitized build) and the system
// calls on files, for itself and for the shared libraries that it uses. Nothing fails unless a thread
// is inside the plug-in.
//
// Threads: any. One fault at a time for the whole process.
#pragma once

namespace tvx::faults {

enum class Kind { Allocation, Write, Open, Rename, Remove };
constexpr Kind kKinds[] = {Kind::Allocation, Kind::Write, Kind::Open, Kind::Rename, Kind::Remove};

// Lets the n-th call of this kind fail from now on, n from 1, and no other.
void Arm(Kind kind, unsigned n);
// Whether the armed fault has struck. Disarm: and no later call fails.
bool HasStruck();
bool Disarm();

// This thread goes into the plug-in, where its calls count, or out to the host. Returns where it was.
bool NoteSide(bool isInPlugin);

}  // namespace tvx::faults
