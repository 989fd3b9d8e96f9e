# The headers' comments as Doxygen wants them: the first describes the file, one behind an item that
# item, any other what follows. Deeper lines are code or drawings.
1s,^//,/// @file\n///,
1s,^/\*,/** @file\n *,
s,^( *)//(   +[^ ]),\1///   \2,
s,^ \*(   +[^ ]), *   \1,
s,^( *)//( |$),\1///\2,
s,^([^/]*[;\,{]) +// ,\1  ///< ,
s,^( *)/\* ,\1/** ,
s,^([^/]*[;\,{]) +/\* ,\1  /**< ,
