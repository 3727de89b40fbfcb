// Line reader: hands out one line at a time from a file read in 512-byte blocks, with CR, LF
// and a terminator behind each line whatever line end the file uses, and lets the parser switch
// to a second file and come back to the first where it left off.
#include "pdd/pddint.h"

namespace {

// The reader's state, one set for the process. _getpos stands on the byte taken last, never on
// the next one; _getpos == _getend means nothing is left in the block.
char _getbuf[PDD_BLOCK];
char *_getpos = _getbuf;
char *_getend = _getbuf;
char _lastterm = 0; // the CR or LF that ended the last line, or 0
HFILE oldfh = 0;    // the file the block came from

// Whether the block holds bytes of oldfh. An emptied block and a consumed one-byte block look
// the same through _getpos and _getend; only the latter may move a file pointer back. This
// also keeps RestoreFilePos off a file the parser has ended with _end_lgets and closed.
bool _getfilled = false;

// Whether the last _lgets began by dropping a line-end byte whose unlike partner then gave an
// empty line. Right after a switch back to a file with CR LF line ends that empty line is no
// line of the file, and the diagnostics don't count it.
bool _pairsplit = false;

// Takes the next byte into *pc. False at the end of the file or on a failed read.
bool TakeByte(char *pc) {
    if (_getpos == _getend) {
        UINT n = _lread(oldfh, _getbuf, PDD_BLOCK);
        if (n == 0 || n > static_cast<UINT>(PDD_BLOCK)) { // HFILE_ERROR comes as a huge count
            _lastterm = 0;
            return false;
        }
        _getend = _getbuf + n - 1;
        _getpos = _getbuf;
        _getfilled = true;
    } else {
        ++_getpos;
    }
    *pc = *_getpos;
    return true;
}

inline bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

} // namespace

int _lgets(char *pszLine, int cchMax, HFILE hFile) {
    if (hFile != oldfh) {
        RestoreFilePos(oldfh);
        oldfh = hFile;
    }
    _pairsplit = false;
    char c;
    if (!TakeByte(&c) || c == 0) return 0;
    if (IsLineEnd(c)) {
        if (_lastterm != 0 && c == _lastterm) {
            // An empty line ended like the line before it.
            _lastterm = 0;
        } else {
            // The other half of the last line end, or the byte a switch of files left behind.
            char dropped = c;
            if (!TakeByte(&c) || c == 0) return 0;
            _pairsplit = IsLineEnd(c) && c != dropped;
        }
    }
    int count = 0;
    while (count < cchMax) {
        if (IsLineEnd(c)) {
            _lastterm = c;
            pszLine[count] = '\r';
            pszLine[count + 1] = '\n';
            pszLine[count + 2] = 0;
            return count + 2;
        }
        pszLine[count] = c;
        if (!TakeByte(&c) || c == 0) return count;
        ++count;
    }
    return count;
}

bool _lgets_pairsplit() {
    return _pairsplit;
}

void _end_lgets() {
    _getpos = _getend = _getbuf;
    _getfilled = false;
    _lastterm = 0;
}

LONG RestoreFilePos(HFILE hFile) {
    LONG distance = 0;
    if (hFile != 0 && _getfilled) {
        distance = static_cast<LONG>(_getend - _getpos) + 1;
        _llseek(hFile, -distance, FILE_CURRENT);
    }
    _end_lgets();
    return distance;
}
