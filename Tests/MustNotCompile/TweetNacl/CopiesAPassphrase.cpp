// refused: deleted (constructor of 'Passphrase'|function 'Passphrase::Passphrase)
#include "TweetNacl/SealedBox.h"

#ifdef REPAIRED
Passphrase moved(Passphrase passphrase) { return passphrase; }
#else
Passphrase copied(const Passphrase& passphrase) { return passphrase; }
#endif
