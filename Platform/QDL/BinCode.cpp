#include "QDL/BinCode.hpp"

BinCode::~BinCode() = default;
