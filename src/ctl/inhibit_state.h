// The lid inhibit, as the service tells of it.
#pragma once

#include "ctl/service_link.h"

// The answer to control code 133.
struct InhibitAnswer {
    DWORD value; // ZORPM_INHIBIT_ON, ZORPM_INHIBIT_OFF; 0: nothing is reported
    bool fresh;  // false: the status said so before already, and an answer of 0 would have left it so
};

const wchar_t* InhibitWords(DWORD value);

// Asks with 133. The handles need SERVICE_QUERY_STATUS. CTL_DONE, or an exit status after a complaint.
int AskInhibit(const ServiceHolder& holder, InhibitAnswer* answer);
