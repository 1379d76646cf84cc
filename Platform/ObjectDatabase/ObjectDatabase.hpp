#pragma once

// The object database: stored objects with ids and classes, references that load them lazily,
// associations between them, and databases in a file of their own.
#include "ObjectDatabase/Association.hpp"
#include "ObjectDatabase/ClassRegistry.hpp"
#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"
#include "ObjectDatabase/Object.hpp"
#include "ObjectDatabase/Ref.hpp"
