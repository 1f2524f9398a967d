// enviroment - the password that the panel hands over
//
// A password comes in the environment and never on the command line. ORV_PASSWORD holds a plain
// one, ORV_CRYPTED_PASSWORD an encrypted one. An empty variable counts as unset. A variable that
// is read is removed from the environment. take_env_passwords() removes both before any child
// exists; what it has taken is read as the variable would have been. Nothing here is reported.
//
// The buffers are static and hold 4095 characters; what is longer is cut. A function that returns
// its buffer works until the buffer has text, and returns that text from then on.
//
// No command calls these; they are for callers to come: get_env_crypted_password,
// get_env_noncrypted_password.

#ifndef MAILVEK_LIB_HOST_ENVIROMENT_H
#define MAILVEK_LIB_HOST_ENVIROMENT_H

// Takes both passwords out of the environment and keeps them for the functions below.
void take_env_passwords();

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
