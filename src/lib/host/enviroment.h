// enviroment - the password that the panel hands over
//
// A password comes in the environment and never on the command line: ORV_PASSWORD holds a
// plain one, ORV_CRYPTED_PASSWORD an encrypted one. A variable that is read is removed from
// the environment, so that no child gets it. An empty variable counts as unset. Nothing here
// is ever reported.
//
// The buffers are static and hold 4095 characters; what is longer is cut. The functions that
// return one have worked once it is not empty: a later call returns it as it is.

#ifndef MAILVEK_LIB_HOST_ENVIROMENT_H
#define MAILVEK_LIB_HOST_ENVIROMENT_H

// Points *password at the plain password, or else at the encrypted one, tells which in
// *isEncrypted, and removes that one variable. 0, or -1 when neither is there. The string
// stays valid.
int get_env_password(char const** password, int* isEncrypted);

// The plain password, empty if there is none.
char* get_env_noncrypted_password();

// The plain password, encrypted with a new salt; else the encrypted one as it is; else the
// encrypted empty string. Removes both variables and seeds rand. "*0", which no password
// matches, when the system cannot encrypt.
char* get_env_crypted_password();

#endif
