// CFF outlines of OpenType fonts. Until the charstring reader arrives, only
// what the container loader needs is here: the record of the table's top
// level, found and held, with its creation and removal.
#ifndef ORVEX_INTERNAL_FS_CFF_H
#define ORVEX_INTERNAL_FS_CFF_H

#include "Orvex_internal/fs_state.h"

struct TTF;
struct CFFTOPDICT;

// The parsed top level of a `CFF ` table, owned by its TTF record.
struct CFF_TAB {
  FS_ULONG max_points;
  FS_ULONG max_contours;
  FS_ULONG nameINDEXoffset;
  FS_BYTE* topdictINDEXptr;
  FS_ULONG topdictINDEXoffset;
  FS_ULONG stringINDEXoffset;
  FS_BYTE* globalsubrINDEXptr;
  FS_ULONG globalsubrINDEXoffset;
  FS_BYTE* charstringINDEXptr;
  FS_ULONG charstringINDEXoffset;
  CFFTOPDICT* topdict;
};

// Finds the font's `CFF ` table, stores its offset in ttf->cff_offset and
// returns its record. No table: null with 405 pending in `error`. A table
// whose 4-byte header can't be read: null with the read's error. Until the
// charstring reader, the record holds no more than that the table is there
// (the header size in nameINDEXoffset, counted from the font's start).
CFF_TAB* load_cff(FS_STATE* state, TTF* ttf);

// Frees a record made by load_cff. Accepts null.
void unload_cff(FS_STATE* state, CFF_TAB* cff);

#endif
