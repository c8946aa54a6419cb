// Brings the module up again for a token whose set-up did not complete or whose module another
// token's teardown has finalised.
#pragma once

#import <Foundation/Foundation.h>

@class TokenSession;

// Runs the bring-up with the token's own module handle, function list, slot and session as they
// stand. On success the token takes the new four and `initialized` becomes 1; on failure the
// function list at hand is finalised and the token's own handle unloaded (a module loaded just now
// stays loaded); the token keeps its four values, though a handle among them is then gone.
//   tokenSession  the session whose token it is.
// Returns whether the token is initialised now.
BOOL Reinitialise(TokenSession *tokenSession);
