#include "catalogue/LibrarySetObserver.hpp"

namespace LM {

LibrarySetObserver::~LibrarySetObserver() = default;
void LibrarySetObserver::SomethingHappened() {}
void LibrarySetObserver::LibraryListChanged() {}

} // namespace LM
