// The TrueType instruction interpreter: the machine that runs a font's font
// program, control-value program and glyph programs over the key's two
// element records (0 the twilight zone, 1 the glyph). Called by the scaler
// and the glyph fetch (fs_scale, fs_glue); calls nothing but the fixed-point
// helpers. Every read of instruction bytes, the stack, the storage, the
// control values and the points is bounded: bad programs stop with 416 or
// compute nonsense, never touch memory outside their records.
#ifndef ORVEX_INTERNAL_FS_FNT_H
#define ORVEX_INTERNAL_FS_FNT_H

#include <setjmp.h>

#include "Orvex_internal/fs_fixed.h"

// How font units become 26.6 along one axis: function 0 (shift), 1 (divide)
// or 2 (multiply by `scl`), chosen by compute_scaling (fs_scale).
struct scale_rec {
  FS_LONG N;
  FS_LONG D;
  FS_FIXED scl;
  FS_SHORT shift;
  FS_SHORT fn;
};

// One of a glyph's element records: the twilight zone (element 0) or the
// glyph (element 1). Arrays lie in the server's workspace and have room for
// the font's largest glyph (or maxTwilightPoints) and 8 phantom places.
struct fnt_ElementType {
  F26DOT6* x;   // hinted 26.6
  F26DOT6* y;
  F26DOT6* ox;  // scaled, unhinted
  F26DOT6* oy;
  FS_LONG* oox;  // font units
  FS_LONG* ooy;
  FS_BYTE* onCurve;
  FS_SHORT* sp;  // contour starts
  FS_SHORT* ep;  // contour ends
  FS_BYTE* f;    // interpreter touch flags
  FS_SHORT nc;
  FS_SHORT np;   // points, phantom places not counted
};

// Touch flags of fnt_ElementType.f.
const FS_BYTE XMOVED = 1;
const FS_BYTE YMOVED = 2;

// A unit vector in 2.14; 16384 is 1.0.
struct SHORT_UNIT_VECTOR {
  SHORTFRACT x, y;
};

// Which program a definition lives in.
const FS_SHORT PREPROGRAM = 0;
const FS_SHORT FONTPROGRAM = 1;
const FS_SHORT MAXPREPROGRAMS = 2;

// A function or instruction definition, kept as an offset into its program
// so that it survives the program's being moved. 8 bytes each, as the font
// loader reserves them.
struct fnt_funcDef {
  FS_ULONG start;
  FS_USHORT length;
  FS_SHORT pgmIndex;
};
struct fnt_instrDef {
  FS_ULONG start;
  FS_USHORT length;
  FS_BYTE pgmIndex;
  FS_BYTE opCode;
};

// The rounding functions, by index.
enum FntRoundFunc {
  RFI_fnt_SuperRound = 0,
  RFI_fnt_Super45Round,
  RFI_fnt_RoundToGrid,
  RFI_fnt_RoundToHalfGrid,
  RFI_fnt_RoundToDoubleGrid,
  RFI_fnt_RoundOff,
  RFI_fnt_RoundDownToGrid,
  RFI_fnt_RoundUpToGrid
};

// The graphic state a control-value program may leave as the default.
struct fnt_ParameterBlock {
  F26DOT6 wTCI;       // control value cut-in
  F26DOT6 sWCI;       // single width cut-in
  F26DOT6 scaledSW;   // single width, scaled
  FS_LONG scanControl;      // low 16 bits SCANCTRL, high 16 SCANTYPE
  FS_LONG instructControl;  // INSTCTRL bits
  F26DOT6 minimumDistance;
  FS_SHORT RoundValue;      // an FntRoundFunc
  F26DOT6 periodMask;       // SROUND
  FRACT period45;           // S45ROUND
  FS_SHORT period, phase, threshold;
  FS_SHORT deltaBase, deltaShift;
  FS_SHORT angleWeight;  // stored, never used
  FS_SHORT sW;           // single width, font units
  FS_BYTE autoFlip;
};

// What the alignment-zone hinter knows of one glyph: its grid fit type and
// four alignment values, set by the glyph fetch from the font's `adfh`; then
// what the engine's own instructions record, cleared at each glyph fetch
// (from nXdelta on): the delta shifts and points along x and y, the
// hinting method and delta per direction, and the points whose strokes
// collapse. Each list holds MAZ_LIST_MAX entries; appends beyond are lost.
const int MAZ_LIST_MAX = 32;
struct fnt_MAZData {
  FS_LONG gridFitType;
  FS_LONG alignment[4];
  FS_LONG nXdelta, nYdelta;
  F26DOT6 Xdeltashift[MAZ_LIST_MAX];
  FS_LONG Xdeltapoint[MAZ_LIST_MAX];
  F26DOT6 Ydeltashift[MAZ_LIST_MAX];
  FS_LONG Ydeltapoint[MAZ_LIST_MAX];
  FS_LONG MAZmethodHorz, MAZmethodVert;
  FS_LONG MAZdeltaHorz, MAZdeltaVert;
  FS_LONG nHcollapse, nVcollapse;
  FS_LONG Hcollapse[MAZ_LIST_MAX];
  FS_LONG Vcollapse[MAZ_LIST_MAX];
};

// The interpreter's state of one scaled font (the key's `globalGS`). The
// pointers are set again before every run, since the workspace may move;
// the counts beside them bound every access.
struct fnt_GlobalGraphicStateType {
  void* maxp;               // TTF_MAXP
  FS_LONG* stackBase;
  FS_LONG stackSize;        // maxStackElements + 32
  FS_LONG* store;
  FS_LONG storeCount;
  F26DOT6* controlValueTable;
  FS_LONG cvtCount;
  FS_USHORT pixelsPerEm;
  FS_USHORT pointSize;
  FS_FIXED fpem;            // pixels per em, 16.16
  F26DOT6 engine[4];        // compensations
  fnt_ParameterBlock defaultParBlock;
  fnt_ParameterBlock localParBlock;
  fnt_funcDef* funcDef;
  FS_LONG funcDefCount;     // maxFunctionDefs
  fnt_instrDef* instrDef;
  FS_LONG instrDefMax;      // maxInstructionDefs
  FS_FIXED metricScalarX, interpScalarX;
  scale_rec scaleX;  // glyph points: the key's, or 1:1 for a composite's program
  FS_FIXED metricScalarY, interpScalarY;
  scale_rec scaleY;
  FS_FIXED cvtStretchX, cvtStretchY;
  scale_rec scaleCVT;
  FS_BOOLEAN identityTransformation;
  FS_BYTE non90DegreeTransformation;  // bit 0 rotated, bit 1 stretched
  FS_FIXED xStretch, yStretch;
  FS_BOOLEAN init;          // true while the control-value program runs
  FS_SHORT pgmIndex;        // the program running: PREPROGRAM, FONTPROGRAM
  FS_LONG instrDefCount;
  FS_BOOLEAN glyphProgram;
  FS_BYTE* pgmList[MAXPREPROGRAMS];
  FS_LONG pgmLength[MAXPREPROGRAMS];
  void* sfnt;
  fnt_MAZData maz_data;
  void* rtgah_data;
  FS_ULONG stateflags;  // the client's flags word, for the autohinter door
  FS_ULONG fontflags;   // the font's LFNT flags
  FS_SHORT udFuncType;
  void* cff_data;
};

struct fnt_LocalGraphicStateType;
typedef void (*FntFunc)(fnt_LocalGraphicStateType* gs);
typedef void (*FntMoveFunc)(fnt_LocalGraphicStateType* gs,
                            fnt_ElementType* el, FS_LONG point,
                            F26DOT6 delta);
typedef F26DOT6 (*FntProjFunc)(fnt_LocalGraphicStateType* gs, F26DOT6 dx,
                               F26DOT6 dy);
typedef F26DOT6 (*FntGetCVTFunc)(fnt_LocalGraphicStateType* gs, FS_LONG n);
typedef F26DOT6 (*FntGetSWFunc)(fnt_LocalGraphicStateType* gs);

// The state of one execution, on the caller's stack.
struct fnt_LocalGraphicStateType {
  fnt_ElementType* CE0;
  fnt_ElementType* CE1;
  fnt_ElementType* CE2;
  SHORT_UNIT_VECTOR proj;
  SHORT_UNIT_VECTOR freedom;
  SHORT_UNIT_VECTOR oldProj;
  FS_LONG* stackPointer;
  const FS_BYTE* insPtr;
  fnt_ElementType* elements;  // the two: twilight, glyph
  fnt_GlobalGraphicStateType* globalGS;
  FS_LONG Pt0, Pt1, Pt2;
  FS_LONG loop;             // count minus one
  FS_BYTE opCode;
  SHORTFRACT pfProj;        // projection dot freedom
  FntMoveFunc MovePoint;
  FntProjFunc Project;
  FntProjFunc OldProject;
  FntGetCVTFunc GetCVTEntry;
  FntGetSWFunc GetSingleWidth;
  FS_LONG error;            // 1 stops the program silently
  jmp_buf env;              // where a panic returns to
  // Guards: the program's first byte (jumps before it are 416), the end of
  // the fetch loop, the call depth and the instruction budget.
  const FS_BYTE* pgmStart;
  const FS_BYTE* pgmEnd;  // the end of the fetch loop under way
  FS_LONG callDepth;
  FS_LONG instructionCount;
  // A delta stream under way (fs_deltas): the bits used of the top stack
  // word, and the stack place below the stream's last word when the stream
  // counts its words (null: the stack's base).
  FS_LONG phase;
  FS_LONG* streamFloor;
};

// The one panic code.
const FS_LONG FNT_PANIC = 416;
// Guards: calls nested deeper than this, or more instructions than this in
// one fnt_Execute, panic.
const FS_LONG FNT_MAX_CALL_DEPTH = 64;
const FS_LONG FNT_MAX_INSTRUCTIONS = 1000000;
// Room the stack has beyond maxStackElements: fonts understate their need.
const FS_LONG FNT_STACK_SLACK = 32;

// Seams of the engine's own hinting behind the autohinter door (0x7F): the
// real-time autohinter (built: rtgah), the alignment-zone hinters and the
// script autohinters. Each moves the current glyph element's points in
// place; those not built do nothing. (The delta hint streams, AA 250 to
// 253, are fs_deltas.)
void fnt_rtgah_seam(fnt_LocalGraphicStateType* gs);
void fnt_alignment_zone_seam(fnt_LocalGraphicStateType* gs, FS_LONG which);
void fnt_script_autohint_seam(fnt_LocalGraphicStateType* gs, FS_LONG which,
                              FS_BOOLEAN flag);

// The pixels per em along the projection: ppem times the CVT's scale when
// the transformation is not the identity. Sizes of deltas compare with it.
FS_LONG fnt_ProjectedPPEM(fnt_LocalGraphicStateType* gs);

// Interpolates the untouched points of the glyph element between the
// touched ones of each contour: along y with `opCode` 0x30 (or 0), along x
// with 0x31 (or 1). Also called by the autohinters with `opCode` set by
// hand.
void fnt_IUP(fnt_LocalGraphicStateType* gs);

// The process-global table of handlers, one per opcode.
extern FntFunc interpFunc[256];

// Runs the bytes [ptr, eptr) over `elements` (an array of two) with the
// scaled font's state. Returns 0 (also when the program stops itself), or
// 416 when it panics.
FS_LONG fnt_Execute(fnt_ElementType* elements, const FS_BYTE* ptr,
                    const FS_BYTE* eptr, fnt_GlobalGraphicStateType* globalGS);

// The fetch loop over [ptr, eptr), re-entered by CALL, LOOPCALL and
// instruction definitions.
void fnt_InnerExecute(fnt_LocalGraphicStateType* gs, const FS_BYTE* ptr,
                      const FS_BYTE* eptr);

// Ends the execution at once: fnt_Execute returns `val`.
[[noreturn]] void fnt_Panic(fnt_LocalGraphicStateType* gs, FS_LONG val);

// With 1, opcodes 0xA2 to 0xAF run the engine's own instructions; with any
// other value they are undefined opcodes left to the font's IDEFs. Global
// to the process.
void set_UD_functions(FS_SHORT UD_function_type);
// 1 while the engine's instructions hold those slots, else 0; a font
// program starts its `udFuncType` from it.
FS_SHORT get_UD_functions();

// The published defaults of the graphic state.
void fnt_SetDefaultParBlock(fnt_ParameterBlock* pb);

// One value through a rounding function with compensation `engine`.
F26DOT6 RoundFuncCall(FS_SHORT f, F26DOT6 xin, F26DOT6 engine,
                      fnt_ParameterBlock* pb);

// Period, phase and threshold of SROUND (normalRound) or S45ROUND from its
// argument.
void fnt_SetRoundValues(fnt_ParameterBlock* pb, FS_LONG arg1,
                        FS_BOOLEAN normalRound);

#endif
