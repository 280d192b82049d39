/**
 * The token with which the host lets this page control the set. dtv-host prints an address that ends with it; the browser
 * keeps it for this origin.
 */

const storageKey = "dtv.token";
const hashPrefix = "#token=";

/** Whether the page's address brings a token, which is taken when the page is loaded. */
export const addressHasToken = (): boolean => location.hash.startsWith(hashPrefix);

function stored(): string | null {
  try {
    return localStorage.getItem(storageKey);
  } catch {
    // Storage may be refused; the token then lasts as long as the page.
    return null;
  }
}

let known: string | null = null;

if (addressHasToken()) {
  known = location.hash.slice(hashPrefix.length);
  // It is neither shown nor copied with the address.
  history.replaceState(null, "", location.pathname + location.search);
  try {
    localStorage.setItem(storageKey, known);
  } catch {
    // As above.
  }
}

export const token = (): string | null => known ?? stored();

/** The host does not know this token. One that another page has stored since stays. */
export function dropToken(refused: string) {
  if (known === refused) known = null;
  try {
    if (localStorage.getItem(storageKey) === refused) localStorage.removeItem(storageKey);
  } catch {
    // As above.
  }
}
