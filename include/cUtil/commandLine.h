/** @file
 *  The options and the further arguments of a command line, by the rules of POSIX getopt().
 *
 *  The option string is that of getopt(): a character for each option, with ':' behind those that take an argument and
 *  "::" behind those that may have one in the same word. The system's extensions hold as well: a '+' in front ends the
 *  options at the first word that is none, a '-' in front makes each such word the argument of an option with the
 *  character 1; otherwise they may stand among the options, unless `POSIXLY_CORRECT` is in the environment. "--" ends
 *  the options in any case. A ':' in front tells an option that lacks its argument from one that is unknown.
 *
 *  Threads: getopt() keeps its state for the whole process, so only one thread at a time may make a command line, and
 *  none may use getopt() meanwhile. Any number of threads may ask a command line that is made. Nothing blocks, unless
 *  the allocator does.
 *
 *  Making one changes getopt()'s variables: `opterr` is 0 afterwards and nothing is printed. The others may point to
 *  memory that is gone; whoever goes on to call getopt() sets `optind` to 0 first.
 */
#ifndef CUTIL_COMMANDLINE_H
#define CUTIL_COMMANDLINE_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A command line that has been parsed, with copies of its texts. */
typedef struct cu_CommandLine cu_CommandLine;

/**
 * Parses the arguments of a program.
 *
 * @param commandLine   address of a null handle; set only on success. cu_CommandLine_delete() ends the command line.
 * @param argc          number of arguments, 1 at least
 * @param argv          the arguments, the program's name first. getopt() may change their order: the words that are no
 *                      options move behind those that are, also on failure. The texts stay the caller's, unchanged.
 * @param optionString  the options, as getopt() takes them
 * @param allocator     for the command line and its texts; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_UNKNOWN_CMDLINE_OPTION; cu_ERROR_MISSING_CMDLINE_OPTION when an
 *         option lacks its argument and the option string begins with ':' (without it such an option counts as
 *         unknown); cu_ERROR_COM_MALLOC_FAILED; or what the allocator says
 *
 * The description does not name the option; getopt() leaves it in `optopt`.
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_newFromArgs(cu_CommandLine** commandLine, int32_t argc, char** argv,
                                                  const char* optionString, cu_allocator* allocator);

/**
 * Splits a text as cu_ArgumentArray_parse() does and parses the words.
 *
 * @param commandLine   address of a null handle; set only on success. cu_CommandLine_delete() ends the command line.
 * @param text          the words, the program's name first; not empty
 * @param optionString  the options, as getopt() takes them
 * @param allocator     for the command line and its texts; null: the shared one
 * @return as cu_CommandLine_newFromArgs(); cu_ERROR_COM_INVALID_ARGUMENT also for a text that holds no word or ends
 *         within quotes
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_newFromString(cu_CommandLine** commandLine, const char* text,
                                                    const char* optionString, cu_allocator* allocator);

/**
 * Tells whether an option was given.
 *
 * @param commandLine  the command line
 * @param option       its character, a byte value that is not 0: cast a `char` to `unsigned char`
 * @param present      receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_hasOption(const cu_CommandLine* commandLine, uint32_t option, bool* present);

/**
 * Gives the argument of an option, the first one when it was given several times.
 *
 * @param commandLine  the command line, to which the text belongs
 * @param option       its character, a byte value that is not 0: cast a `char` to `unsigned char`
 * @param argument     receives the text; null when the option has no argument or was not given
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_getOptarg(const cu_CommandLine* commandLine, uint32_t option,
                                                const char** argument);

/**
 * Gives the number of the arguments that are neither options nor arguments of options.
 *
 * @param commandLine  the command line
 * @param count        receives the number
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_getNumAdditionalOptions(const cu_CommandLine* commandLine, uint32_t* count);

/**
 * Gives one of the arguments that are neither options nor arguments of options.
 *
 * @param commandLine  the command line, to which the text belongs
 * @param index        0 to their number - 1, in the order of the command line
 * @param argument     receives the text
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_getAdditionalOption(const cu_CommandLine* commandLine, uint32_t index,
                                                          const char** argument);

/**
 * Ends a command line and its texts.
 *
 * @param commandLine  address of the handle, which must hold a command line; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_CommandLine_delete(cu_CommandLine** commandLine);

CU_END_DECLS

#endif
