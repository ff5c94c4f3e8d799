/* C programs that ask for names. The texts that they give are for free(). */
#ifndef QUILLMARK_TESTS_NET_DNS_FROM_C_H
#define QUILLMARK_TESTS_NET_DNS_FROM_C_H

#include "include2/quillmark.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Every section of an answer, its flags and what its error functions say. */
char* answerFromC(int type, int recordClass, char const* name, char const* server, int port);
/* What quill_dns_query_print writes; null asks without a query. */
char* printFromC(char const* name, char const* server, int port);
/* The results of every function for no query at all, and for one whose question failed. */
char* nullQueryFromC(void);
char* failedQueryFromC(char const* name, char const* server, int port);
/* The results of a successful query with null wherever something would be stored. */
char* nothingStoredFromC(char const* name, char const* server, int port);
/* "count array" of the questions and of the answers, where there is no memory for the arrays. */
char* withoutMemoryFromC(quill_dns_query* query);
/* "type class result": the names of both numbers, and what the check of the host name gives. */
char* namesFromC(int type, int recordClass, char const* host);
/* "result [bytes up to the size]" with a buffer that was full of x. */
char* queryStringFromC(char const* address, int size);
/* "result [bytes up to the size] port". */
char* serverInfoFromC(int size);
/* The same without a buffer, and without anything. */
char* serverPortFromC(void);
/* "count address address ... | records beyond the count" of an array of four. */
char* addressListFromC(char const* name, int max, int family);
int addressListWithoutArrayFromC(char const* name, int max);

#ifdef __cplusplus
}
#endif

#endif
