#include "QDL/FileInterfaces.hpp"

ISymbol2D::~ISymbol2D() = default;

namespace QDL {

IFileRef::~IFileRef() = default;
IFileServices::~IFileServices() = default;

} // namespace QDL
