// The one list of metadata value types. Registration (core/Init.cpp), the extern templates and
// short names (MetadataImpl.h, TypedArrayMetadata.h), the explicit instantiations and the typed
// test lists all expand it; ids and names live in each type's ValueTraits.
//
// A row is X(ctx, layer, group, Type, Name, arrays):
//   ctx     whatever the expanding site passed as the list's second argument (a filter token)
//   layer   the folder whose headers define Type's traits: metadata, skeleton or pose. Code of a
//           layer expands only its own rows, so this header names higher types only as tokens
//           and never includes their headers.
//   group   the source that instantiates the row: numbers, imath, geometry (core/metadata),
//           skeleton (core/skeleton), pose (core/pose)
//   Type    the value type T of MetadataImpl<T> / TypedArrayMetadata<T>
//   Name    the registered name without "Metadata"; gives the aliases NameMetadata and
//           NameArrayMetadata
//   arrays  withArray or noArray: whether TypedArrayMetadata<Type> exists
//
//   #define ROW(want, layer, group, T, Name, arrays) ZELTO_VALUE_WHEN(layer, want, f<T>();)
//   ZELTO_VALUE_TYPES(ROW, metadata)  // f<bool>(); f<char>(); ... for the metadata rows only
//
// The pose and skeleton layers each expand their own rows once: the traits header
// (core/pose/PoseMetadata.h) continues with ZELTO_DECLARE_SCALARS(pose) and
// ZELTO_DECLARE_ARRAYS(pose); one source of the folder holds ZELTO_INSTANTIATE_VALUE_TYPES(pose)
// (core/metadata/internal/ValueTypeInstances.h); and core/ZeltoCore.h includes the traits
// header, so that core/Init.cpp registers the rows. Likewise for skeleton
// (core/skeleton/SkeletonMetadata.h).
#pragma once

// clang-format off
#define ZELTO_VALUE_TYPES(X, ctx)                                        \
    X(ctx, metadata, numbers,  bool,                     Bool,         withArray) \
    X(ctx, metadata, numbers,  char,                     Char,         withArray) \
    X(ctx, metadata, numbers,  unsigned char,            UChar,        withArray) \
    X(ctx, metadata, numbers,  short,                    Short,        withArray) \
    X(ctx, metadata, numbers,  unsigned short,           UShort,       withArray) \
    X(ctx, metadata, numbers,  int,                      Int,          withArray) \
    X(ctx, metadata, numbers,  unsigned int,             UInt,         withArray) \
    X(ctx, metadata, numbers,  int64_t,                  Int64,        withArray) \
    X(ctx, metadata, numbers,  uint64_t,                 UInt64,       withArray) \
    X(ctx, metadata, numbers,  float,                    Float,        withArray) \
    X(ctx, metadata, numbers,  double,                   Double,       withArray) \
    X(ctx, metadata, numbers,  std::string,              String,       withArray) \
    X(ctx, metadata, imath,    Imath::V2d,               Vector2,      withArray) \
    X(ctx, metadata, imath,    Imath::V2i,               Vector2i,     withArray) \
    X(ctx, metadata, imath,    Imath::V2f,               Vector2f,     withArray) \
    X(ctx, metadata, imath,    Imath::V3d,               Vector3,      withArray) \
    X(ctx, metadata, imath,    Imath::V3i,               Vector3i,     withArray) \
    X(ctx, metadata, imath,    Imath::V3f,               Vector3f,     withArray) \
    X(ctx, metadata, imath,    Imath::V4d,               Vector4,      withArray) \
    X(ctx, metadata, imath,    Imath::V4i,               Vector4i,     withArray) \
    X(ctx, metadata, imath,    Imath::V4f,               Vector4f,     withArray) \
    X(ctx, metadata, imath,    Imath::M44d,              Matrix,       withArray) \
    X(ctx, metadata, imath,    Imath::M44f,              Matrixf,      withArray) \
    X(ctx, metadata, imath,    Imath::Quatd,             Quaternion,   withArray) \
    X(ctx, metadata, imath,    Imath::Quatf,             Quaternionf,  withArray) \
    X(ctx, metadata, imath,    Imath::Eulerd,            Euler,        withArray) \
    X(ctx, metadata, imath,    Imath::Eulerf,            Eulerf,       withArray) \
    X(ctx, metadata, imath,    Imath::Box2d,             Box2,         withArray) \
    X(ctx, metadata, imath,    Imath::Box2i,             Box2i,        withArray) \
    X(ctx, metadata, imath,    Imath::Box2f,             Box2f,        withArray) \
    X(ctx, metadata, imath,    Imath::Box3d,             Box3,         withArray) \
    X(ctx, metadata, imath,    Imath::Box3i,             Box3i,        withArray) \
    X(ctx, metadata, imath,    Imath::Box3f,             Box3f,        withArray) \
    X(ctx, metadata, geometry, ZeltoUtils::Mesh,         Mesh,         withArray) \
    X(ctx, metadata, geometry, ZeltoUtils::Image,        Image,        noArray)   \
    X(ctx, metadata, geometry, ZeltoUtils::Curve,        Curve,        withArray) \
    X(ctx, metadata, geometry, ZeltoUtils::SampledCurve, SampledCurve, withArray) \
    X(ctx, pose,     pose,     Pose,                     Pose,         withArray) \
    X(ctx, skeleton, skeleton, Skeleton,                 Skeleton,     withArray) \
    X(ctx, metadata, numbers,  MurmurHash3,              Hash,         noArray)
// clang-format on

// ZELTO_VALUE_WHEN(a, b, code...): `code` when the tokens a and b are the same list token
// (a layer, group or arrays value), nothing otherwise.
#define ZELTO_VALUE_WHEN(a, b, ...) ZELTO_VALUE_IF_(ZELTO_VALUE_SAME_(a, b), __VA_ARGS__)

#define ZELTO_VALUE_SAME_(a, b) ZELTO_VALUE_SECOND_(ZELTO_VALUE_EQ_##a##_##b, 0, 0)
#define ZELTO_VALUE_SECOND_(...) ZELTO_VALUE_SECOND2_(__VA_ARGS__)
#define ZELTO_VALUE_SECOND2_(x, y, ...) y
#define ZELTO_VALUE_IF_(cond, ...) ZELTO_VALUE_IF2_(cond, __VA_ARGS__)
#define ZELTO_VALUE_IF2_(cond, ...) ZELTO_VALUE_IF_##cond(__VA_ARGS__)
#define ZELTO_VALUE_IF_0(...)
#define ZELTO_VALUE_IF_1(...) __VA_ARGS__

// One line per token the list uses.
#define ZELTO_VALUE_EQ_metadata_metadata ~, 1
#define ZELTO_VALUE_EQ_skeleton_skeleton ~, 1
#define ZELTO_VALUE_EQ_pose_pose ~, 1
#define ZELTO_VALUE_EQ_numbers_numbers ~, 1
#define ZELTO_VALUE_EQ_imath_imath ~, 1
#define ZELTO_VALUE_EQ_geometry_geometry ~, 1
#define ZELTO_VALUE_EQ_withArray_withArray ~, 1
#define ZELTO_VALUE_EQ_noArray_noArray ~, 1
