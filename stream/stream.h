// Printer language stream: PJL job framing, PCL page set-up, colour set-up, HP-GL/2 context.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

// ---- Job framing ----
void WritePCLJobHeader(SPLDEVINFO *pInfo);
void WritePCLJobFooter(SPLDEVINFO *pInfo);

// ---- Page set-up ----
void WritePCLPageHeader(SPLDEVINFO *pInfo);

// ---- HP-GL/2 context ----
void fSetOutputMode(SPLDEVINFO *pInfo, BYTE mode);
void WriteHPGLDefaults(SPLDEVINFO *pInfo);
void WriteHPGLPageHeader(SPLDEVINFO *pInfo);
int InitHPGLScale(SPLDEVINFO *pInfo);
void ClearHPGLClipping(SPLDEVINFO *pInfo);
void EndPolyLineMode(SPLDEVINFO *pInfo);
