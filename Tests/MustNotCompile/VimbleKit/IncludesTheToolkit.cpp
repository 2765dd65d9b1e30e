// refused: 'QString' file not found|QString: No such file or directory
#ifdef REPAIRED
#include <string>
#else
#include <QString>
#endif
