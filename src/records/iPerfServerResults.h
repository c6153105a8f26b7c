#pragma once

#include "records/PerfResult.h"

// The results of one test that a remote client ran against this computer.
class iPerfServerResults
{
public:
    PerfResultPtr senderResults;   // declared; nothing sets or reads it
    PerfResultPtr receiverResults; // declared; nothing sets or reads it
    PerfResultList intervalResults; // interval records in arrival order
    PerfResultList finalResults;    // final-summary records
    QString clientIPAddress;        // declared; nothing sets or reads it
};

using iPerfServerResultsPtr = std::shared_ptr<iPerfServerResults>;
