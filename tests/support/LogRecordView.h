#pragma once

#include "QuenInclude/Logger.h"
#include "tests/support/ClassLayout.h"

/// The private side of a log record, for tests that look inside. Only LogRecordView.cpp writes the private
/// names.
namespace LogRecordView
{

/// The members in the order of their declarations.
ClassLayout::Members ListMembers(const Logger::LogMessageStream& _clsRecord);
} // namespace LogRecordView
