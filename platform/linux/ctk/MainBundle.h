// Makes an extension's bundle the process's main bundle.
#pragma once

#import <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

// Has +[NSBundle mainBundle] answer the bundle at a path in Apple's layout (X.appex/Contents/...):
// bundlePath, infoDictionary, objectForInfoDictionaryKey:, bundleIdentifier, executablePath
// (Contents/MacOS/<CFBundleExecutable>), resourcePath, pathForResource:ofType: (Contents/Resources,
// then its preferred localisations) and localizedStringForKey:value:table: read from there; the
// disk is asked each time, except for Info.plist.
// Localisations are looked for under language codes ("de.lproj"), in this order: the languages of
// the environment (the first of LANGUAGES, LC_ALL, LC_MESSAGES and LANG that is not empty, read
// now; LANGUAGES may list several, as in "de;en"), CFBundleDevelopmentRegion, "en".
// Nil restores the real main bundle. Returns the bundle, or nil, with nothing changed, when the
// path is no folder. Not to be called while other threads ask for the main bundle.
NSBundle *_Nullable TKSetMainBundle(NSString *_Nullable path);

#pragma clang assume_nonnull end
