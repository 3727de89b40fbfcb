/* Host calls for tools: what a program that inspects printer descriptions and configurations
 * needs beyond driving jobs. Exported from libq417plg.so beside the host API; nothing in a
 * job depends on them.
 *
 * Strings are UTF-8 host paths. */
#ifndef Q417_HOST_TOOLS_H
#define Q417_HOST_TOOLS_H

#include "q417/q417plg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the bytes of one of the library's memory blocks, such as a table behind a handle of
 * the CFGINFO that GetConfig filled: at most cbBuf bytes into buf. Returns the block's size,
 * or 0 when the handle names no block. buf NULL (or cbBuf 0) asks for the size alone. */
Q417_API DWORD Q417_ReadBlock(HGLOBAL hBlock, void *buf, DWORD cbBuf);

/* Frees every block behind a CFGINFO that GetConfig filled for the caller (its 21 tables,
 * the file version and the two orientation texts) and zeroes those handles. */
Q417_API void Q417_FreeConfig(void *pCfgInfo);

/* Gives a device mode its printer's configuration, so that the DDI accessors can answer: the
 * process keeps one compiled configuration (built from the printer's description, or read from
 * the binary file beside it when the device mode allows and it is current), and this call
 * stores its handle in the device mode's hConfig and hCfgCache. The device mode must carry the
 * printer's handle (Q417_InitDevMode). The configuration is the process's first printer's for
 * as long as the process lives, as on the job side. Returns 0 when none can be had. */
Q417_API BOOL Q417_AttachConfig(void *pDevMode);

/* Diagnostics of the printer description parser, off unless a tool sets them: fn is called
 * for every line that is skipped or refused and for every paper whose printable area can't be
 * completed. file is the file's name (UTF-8), line counts from 1 (0 when no line is at hand),
 * key the key token or the paper's name, reason a short phrase. What the parser makes of a file
 * is the same with or without the hook. fn NULL switches them off. */
typedef void (*Q417_PDD_DIAGNOSTIC_FN)(void *ctx, const char *file, int line, const char *key,
                                       const char *reason);
Q417_API void Q417_SetPDDDiagnosticHook(Q417_PDD_DIAGNOSTIC_FN fn, void *ctx);

/* What the library makes of a printer description, without a printer and without writing any
 * file: the parse, the lengths of its five lists, and whether a configuration can be built. */
typedef struct Q417_PDD_CHECK {
    INT nParseResult; /* 0 read to the end, 2 empty or not a PDD, 4 can't be opened, -1 no memory */
    BOOL bConfigBuilt; /* the configuration builder accepted the parse */
    DWORD nResolutions;
    DWORD nPapers;
    DWORD nTrays;
    DWORD nDests;
    DWORD nMedia;
} Q417_PDD_CHECK;
Q417_API BOOL Q417_CheckPDD(const char *pddPath, Q417_PDD_CHECK *pResult);

#ifdef __cplusplus
}
#endif

#endif
