// Paper arithmetic: after a parse each paper's printable areas are made complete and relative,
// edges turned into width and height. A 0 stands for a number the file never gave.
#include "pdd/pddint.h"

#include <initializer_list>

namespace {

inline int32_t Sub32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

bool Complete(const PDDAREA &a) {
    return a.nLeft && a.nTop && a.nRight && a.nBottom;
}

} // namespace

int PDD_CalcPapers(PDDINFO *pPDD) {
    if (!pPDD || !pPDD->pPaperList) return 0;
    DWORD nWalked = 0;
    for (PDDPAPER *p = pPDD->pPaperList; p; p = p->pNext) {
        if (p->nWidth == 0 || p->nHeight == 0) {
            PDDDiagPaper(pPDD, p,
                         "paper without a size: it and the papers behind it stay "
                         "unconverted");
            return 0;
        }
        PDDAREA &port = p->PortraitArea;
        PDDAREA &land = p->LandscapeArea;
        bool bOk;
        if (land.nLeft == 0) {
            bOk = Complete(port);
            if (bOk) land = port;
        } else if (port.nLeft == 0) {
            bOk = Complete(land);
            if (bOk) port = land;
        } else {
            bOk = Complete(port) && Complete(land);
        }
        if (!bOk) {
            PDDDiagPaper(pPDD, p,
                         "paper without a complete printable area: it and the papers "
                         "behind it stay unconverted");
            return 0;
        }
        for (PDDAREA *a : {&port, &land}) {
            a->nRight = Sub32(a->nRight, a->nLeft);
            a->nBottom = Sub32(a->nBottom, a->nTop);
        }
        ++nWalked;
    }
    return nWalked == pPDD->nPapers ? 1 : 0;
}
