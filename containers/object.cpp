#include "containers/object.h"

Object::~Object() = default;

bool Object::isStorable() { return true; }

bool Object::isUndoable() { return isStorable(); }

bool Object::isNotifying() { return true; }

std::string Object::name() { return "item"; }

std::uint32_t Object::managedId() { return nv::kNoId; }

void Object::setManagedId(std::uint32_t) {}

void Object::getConfig(nv::message&, std::uint32_t) {}

void Object::setConfig(const nv::message&, std::uint32_t) {}
