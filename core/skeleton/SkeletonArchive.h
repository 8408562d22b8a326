// The archive form of a Skeleton: joints, joint metadata, feet, pelvises and root.
//
// Layout (little-endian, no padding, no type id): joint count (u16); per joint its name (u64
// length and bytes, "noname" for an empty name), id (u16), rotation x y z w, translation and
// scale (doubles), parent id (u16, 65535 for none), child count (u16) and child ids (u16 each);
// metadata entry count (u64) and per entry, ascending, the joint id (u16) and its map; foot
// count (u16) and ik, root, tip per foot; pelvis count (u16, at least 1: joint 0 stands in
// when none is registered) and ids; root id (u16). Skeleton::memSize() is its exact length.
// Derived data is not stored; the reader rebuilds the name map, IK data and detached joints.
// Lods are not stored (a read keeps the target's own). Maps are always written and read in their
// plain layout.
//
//   Archive a(skeleton.memSize(), 0); a << skeleton;
//   a.reset(); Skeleton copy; a >> copy; if (a.failed()) ...
#pragma once

#include "core/archive/Archive.h"
#include "core/skeleton/Skeleton.h"
#include "utils/Export.h"

namespace ZeltoCore {

// Writes at the cursor. With fewer than memSize() bytes left nothing is written and the archive
// is marked failed.
ZELTO_API Archive& operator<<(Archive& archive, const Skeleton& skeleton);

// Reads into a new skeleton and swaps it in only when the whole stream is sound. Refused (the
// archive marked failed, its cursor back where it was, the skeleton unchanged): a stream that
// ends early, an archive already marked failed, counts that cannot fit in the bytes left, a
// joint id that is not its index, a parent or child id out of range, a joint listed as a child
// more than once or under a joint that its own parent id does not name, a joint that is its own
// ancestor, metadata ids out of range or not ascending, and a map that does not read.
ZELTO_API Archive& operator>>(Archive& archive, Skeleton& skeleton);

}  // namespace ZeltoCore
