// Watermarks: definitions, drawing and the soft font of the label.
#pragma once

#include "platform/win32.h"
#include "q417/records.h"

int DownloadWaterMarkFont(SPLDEVINFO *pInfo);
int DeleteWaterMarkFont(SPLDEVINFO *pInfo);
int DrawWaterMark(SPLDEVINFO *pInfo);
