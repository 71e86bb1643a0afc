/*
 * The types of the members of generated record structures, for C11 and C++20, with GCC and Clang.
 *
 * Records are packed without padding, so no type here asks for an alignment: the structures have the sizes and offsets
 * of the records without any further setting, and nothing else in the program is packed. Members may lie at odd
 * addresses; use them through the structure, which the compiler knows to be unaligned, and copy what is to be handed on
 * by address.
 *
 * The names are those that a generated header gives to the types of the schema, and not all of them say what they
 * are. Each is declared so that the structure has the layout of the record:
 *
 *     schema type                   declared as    is here
 *     CHAR, UCHAR                   CHAR, UCHAR    1 byte
 *     SHORT, USHORT                 SHORT, USHORT  2 bytes
 *     INT, UINT                     INT, UINT      4 bytes
 *     LONG                          FLOAT          4 bytes, a signed integer
 *     ULONG                         DOUBLE         4 bytes, an unsigned integer
 *     STRING, PASSWD                PASSWD         1 byte, an array of them
 *     TIME                          SYSTEMTIME     16 bytes
 *
 * Two types share a name with another one of another width, so their members have the wrong size and every member
 * after them the wrong offset: FLOAT is declared as CHAR, DOUBLE as SYSTEMTIME. Do not use a structure from its first
 * FLOAT or DOUBLE member on, nor its sizeof; read such fields by their number, as CRtTable::GetFieldData does.
 *
 * The size of a field has to be a multiple of its element's, and that of a TIME 16 bytes; the members after another
 * one are at too low an offset as well.
 *
 * A C++ program that includes headers of the library too has a SYSTEMTIME already. It includes the generated headers
 * inside a namespace, all in the same one:
 *
 *     namespace records {
 *     #include "plant.h"
 *     #include "system.h"
 *     }
 */
#ifndef QUILLANEST_GSYSTEMDEF_H
#define QUILLANEST_GSYSTEMDEF_H

#if !defined(__GNUC__)
#error "this compiler needs its own way to declare types without alignment"
#endif

typedef char CHAR;
typedef unsigned char UCHAR;
typedef short SHORT __attribute__((aligned(1)));
typedef unsigned short USHORT __attribute__((aligned(1)));
typedef int INT __attribute__((aligned(1)));
typedef unsigned int UINT __attribute__((aligned(1)));
typedef int FLOAT __attribute__((aligned(1)));
typedef unsigned int DOUBLE __attribute__((aligned(1)));
typedef char PASSWD;

typedef struct {
  USHORT wYear;
  USHORT wMonth;
  USHORT wDayOfWeek;
  USHORT wDay;
  USHORT wHour;
  USHORT wMinute;
  USHORT wSecond;
  USHORT wMilliseconds;
} SYSTEMTIME;

#endif
