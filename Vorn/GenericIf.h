// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/ByName/GenericValue.h"
#include "Pylo/IntfId.h"
#include "Vorn/CongestionData.h"
#include "Vorn/Export.h"

// Access by name to everything that is here (Kes/ByName/GenericIf.h tells how): each type has a companion
// GenericIf_. Those of values hold a copy, those of objects keep the object alive.
//
//   Vorn::CongestionData::GenericIf_ generic(recorder);
//   generic.attributeOp({generic.attributeId("numSharedChunks"), Kes::OpCode::set},
//                       {{"value", Kes::toGeneric("400")}});
//
// What the attributes are stands in one place, TypeTables.cpp; they are found under their names once the
// types are registered (Registration.h).
namespace Vorn {

class VORN_EXPORT Microseconds::GenericIf_ : public Kes::GenericValue<Microseconds> {
 public:
  using GenericValue::GenericValue;
  static Kes::Type const& staticType();
};

class VORN_EXPORT EntryIndex::GenericIf_ : public Kes::GenericValue<EntryIndex> {
 public:
  using GenericValue::GenericValue;
  static Kes::Type const& staticType();
};

class VORN_EXPORT EntryIndexOrNull::GenericIf_ : public Kes::GenericValue<EntryIndexOrNull> {
 public:
  using GenericValue::GenericValue;
  static Kes::Type const& staticType();
};

class VORN_EXPORT Entry::GenericIf_ : public Kes::GenericObject<Entry> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT Chunk::GenericIf_ : public Kes::GenericObject<Chunk> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT GlobalBufferChunk::GenericIf_ : public Kes::GenericObject<GlobalBufferChunk> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT PortMetaData::GenericIf_ : public Kes::GenericObject<PortMetaData> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT PortMetaDataDumper::GenericIf_ : public Kes::GenericObject<PortMetaDataDumper> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT PortData::GenericIf_ : public Kes::GenericObject<PortData> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT Clock::GenericIf_ : public Kes::GenericObject<Clock> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT TestClock::GenericIf_ : public Kes::GenericObject<TestClock, Clock::GenericIf_> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

class VORN_EXPORT CongestionData::GenericIf_ : public Kes::GenericObject<CongestionData> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

}  // namespace Vorn

// Values and objects that attributes hold but that have no attributes of their own here. The states of
// collections are written as two numbers with a comma between them.
namespace Kes {

template <>
struct VORN_EXPORT Text<Pylo::IntfId> {
  static String write(Pylo::IntfId const& value) { return value.stringValue(); }
  static Pylo::IntfId read(StrepPos& pos, StrepPos end);  // takes all that is left
};
template <>
struct VORN_EXPORT Text<Vorn::EntryQueue::EntryMetadata> {
  static String write(Vorn::EntryQueue::EntryMetadata const& value);
  static Vorn::EntryQueue::EntryMetadata read(StrepPos& pos, StrepPos end);
};
template <>
struct VORN_EXPORT Text<Vorn::PortData::ChunkMetadata> {
  static String write(Vorn::PortData::ChunkMetadata const& value);
  static Vorn::PortData::ChunkMetadata read(StrepPos& pos, StrepPos end);
};
template <>
struct VORN_EXPORT Text<Vorn::CongestionData::ChunkArrayMetadata> {
  static String write(Vorn::CongestionData::ChunkArrayMetadata const& value);
  static Vorn::CongestionData::ChunkArrayMetadata read(StrepPos& pos, StrepPos end);
};

template <>
struct VORN_EXPORT GenericOf<Pylo::IntfId> {
  using If = GenericValue<Pylo::IntfId>;
  static Type const& type();
};
template <>
struct VORN_EXPORT GenericOf<Vorn::EntryQueue::EntryMetadata> {
  using If = GenericValue<Vorn::EntryQueue::EntryMetadata>;
  static Type const& type();
};
template <>
struct VORN_EXPORT GenericOf<Vorn::PortData::ChunkMetadata> {
  using If = GenericValue<Vorn::PortData::ChunkMetadata>;
  static Type const& type();
};
template <>
struct VORN_EXPORT GenericOf<Vorn::CongestionData::ChunkArrayMetadata> {
  using If = GenericValue<Vorn::CongestionData::ChunkArrayMetadata>;
  static Type const& type();
};
template <>
struct VORN_EXPORT GenericOf<Vorn::Config> {
  using If = GenericObject<Vorn::Config>;
  static Type const& type();
};
template <>
struct VORN_EXPORT GenericOf<Vorn::Hardware::Status> {
  using If = GenericObject<Vorn::Hardware::Status>;
  static Type const& type();
};

}  // namespace Kes
