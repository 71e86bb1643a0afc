/* What the C part of the client does for the C++ part. */
#ifndef PLANT_CLIENT_CLIENT_H
#define PLANT_CLIENT_CLIENT_H

#ifdef __cplusplus
extern "C" {
#endif

/* Prints one record of the table alarms on a line; `record` is its address in the image. */
void print_alarm(const void *record);

#ifdef __cplusplus
}
#endif

#endif
