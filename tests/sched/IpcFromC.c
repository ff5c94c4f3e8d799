/* A C caller of the local request/response protocol. */

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "include2/quillmark.h"

ipc_connection* ipcConnectFromC(unsigned int port);
int ipcWriteFromC(ipc_connection* connection, unsigned int type, char const* payload, unsigned int length);
int ipcReadFromC(ipc_connection* connection, unsigned int room, unsigned int* type, unsigned int* length,
                 char* payload);
int ipcPingFromC(unsigned int port, char const* payload, unsigned int length, char* answer);
int ipcNullsFromC(ipc_connection* connection);
int ipcLengthThatWrapsFromC(ipc_connection* connection, int reading);

ipc_connection* ipcConnectFromC(unsigned int port) {
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons((unsigned short)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ipc_connect((struct sockaddr const*)&address);
}

int ipcWriteFromC(ipc_connection* connection, unsigned int type, char const* payload, unsigned int length) {
    ipc_pdu* const pdu = malloc(sizeof *pdu + length);
    if (!pdu) return -2;
    pdu->type = type;
    pdu->length = length;
    memcpy(pdu + 1, payload, length);
    int const result = ipc_write(connection, pdu);
    free(pdu);
    return result;
}

int ipcReadFromC(ipc_connection* connection, unsigned int room, unsigned int* type, unsigned int* length,
                 char* payload) {
    ipc_pdu* const pdu = malloc(sizeof *pdu + room);
    if (!pdu) return -2;
    pdu->type = 0;
    pdu->length = room;
    int const result = ipc_read(connection, pdu);
    *type = pdu->type;
    *length = pdu->length;
    if (result > 8) memcpy(payload, pdu + 1, (size_t)result - 8);
    free(pdu);
    return result;
}

/* All that a caller does: connects, asks, reads the answer, closes. The result of the reading. */
int ipcPingFromC(unsigned int port, char const* payload, unsigned int length, char* answer) {
    unsigned int type = 0;
    unsigned int answered = 0;
    ipc_connection* const connection = ipcConnectFromC(port);
    if (!connection) return -3;
    int const written = ipcWriteFromC(connection, 1, payload, length);
    int const result = ipcReadFromC(connection, length, &type, &answered, answer);
    ipc_close(connection);
    return written == result && type == 1 && answered == length ? result : -4;
}

int ipcNullsFromC(ipc_connection* connection) {
    ipc_pdu pdu = {1, 0};
    ipc_close(NULL);
    return ipc_write(NULL, &pdu) == 0 && ipc_write(connection, NULL) == 0 && ipc_write(NULL, NULL) == 0 &&
           ipc_read(NULL, &pdu) == 0 && ipc_read(connection, NULL) == 0 && ipc_read(NULL, NULL) == 0;
}

int ipcLengthThatWrapsFromC(ipc_connection* connection, int reading) {
    ipc_pdu pdu = {1, 0xfffffff8U};
    return reading ? ipc_read(connection, &pdu) : ipc_write(connection, &pdu);
}
