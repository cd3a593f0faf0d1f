// The page's libraries from npm, bundled into site-libs.js: the TIFF decoder
// and zip files for exporting and importing several presets at once.
import UTIF from 'utif2';
import { unzipSync, zipSync } from 'fflate';

self.FlairizeLibs = { UTIF, unzipSync, zipSync };
