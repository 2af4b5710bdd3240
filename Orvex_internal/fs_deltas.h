// The compressed delta hint streams: the interpreter's AA commands 250 to
// 253 decode a bit stream that a glyph program pushed onto the stack as
// 16-bit words (the first word on top) and apply its size-specific
// corrections with SHPIX, or record them in `maz_data` for the
// alignment-zone hinter. Called by the AA door of the interpreter
// (fs_fnt); calls back into its instruction table. Every read is bounded
// by the stack: a stream cut short ends its command, never reads below the
// stack's base.
#ifndef ORVEX_INTERNAL_FS_DELTAS_H
#define ORVEX_INTERNAL_FS_DELTAS_H

#include "Orvex_internal/fs_fnt.h"

// Reads bitCount (0 to 16) bits, the most significant first, from the top
// stack word after the *phase bits already used of it. A read that crosses
// the word joins it with the word below and pops one; a word exactly used
// up is popped and *phase returns to 0. A word is the low 16 bits of a
// stack value. A read that needs a word below the stream (the stack's
// base, or `streamFloor` when set) pops what is left of the stream, sets
// *phase to 0 and gives -1: the stream is cut.
FS_LONG get_bitfield(FS_LONG bitCount, FS_LONG* phase,
                     fnt_LocalGraphicStateType* gs);

// The prefix codes of the streams, each walked bit by bit from the stack
// by get_bitfield: the decoded value, or -1 when the stream is cut.
FS_LONG get_huffman_opcode_251(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_0(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_1(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_2(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_3(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_5(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_7(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_8(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_251_9(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_opcode_252(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_0(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_1(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_2(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_3(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_4(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_5(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_6(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_8(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_252_9(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_opcode_3(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_4(fnt_LocalGraphicStateType* gs);
FS_LONG get_huffman_operand_6(fnt_LocalGraphicStateType* gs);

// The commands, run by AA with the stream on top of the stack (`which`
// already popped). 250: an alignment-zone part, then a delta part along x
// and one along y, then CLEAR. 251: alignment-zone records, ending in AA 5
// or 6. 252: one delta part along the freedom vector. 253: runs over a base
// delta and a step, in a stream that counts its own words.
void do_deltas_250(fnt_LocalGraphicStateType* gs);
void do_deltas_251(fnt_LocalGraphicStateType* gs);
void do_deltas_252(fnt_LocalGraphicStateType* gs);
void do_deltas_253(fnt_LocalGraphicStateType* gs);

#endif
