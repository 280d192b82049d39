/**
 * The token that allows this page to control the set. The address that dtv-host prints ends with it; the browser stores
 * it for this origin.
 */

const storageKey = "dtv.token";
const hashPrefix = "#token=";

/** Whether the page's address contains a token. It is read when the page is loaded. */
export const addressHasToken = (): boolean => location.hash.startsWith(hashPrefix);

function stored(): string | null {
  try {
    return localStorage.getItem(storageKey);
  } catch {
    // The browser may refuse access to its storage. The token is then known until the page is closed.
    return null;
  }
}

let known: string | null = null;

if (addressHasToken()) {
  known = location.hash.slice(hashPrefix.length);
  // The token must not be visible in the address or be copied with it.
  history.replaceState(null, "", location.pathname + location.search);
  try {
    localStorage.setItem(storageKey, known);
  } catch {
    // See stored().
  }
}

export const token = (): string | null => known ?? stored();

/** Forgets a token that the host refused. A token that another page has stored meanwhile is kept. */
export function dropToken(refused: string) {
  if (known === refused) known = null;
  try {
    if (localStorage.getItem(storageKey) === refused) localStorage.removeItem(storageKey);
  } catch {
    // See stored().
  }
}
